// Files of the user's (cards, the configuration, exported lists), numbers and addresses, and what is typed.
#include <cstddef>
#include <string>
#include <vector>

#include "cli/CommandError.h"
#include "cli/CommandLine.h"
#include "cli/ListFile.h"
#include "fuzz/FuzzTarget.h"
#include "fuzz/WorkFolder.h"
#include "pellor/linux/Configuration.h"
#include "pellor/linux/contacts/internal/CardFile.h"
#include "pellor/linux/phone/LibPhoneNumber.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/runtime/Fatal.h"

namespace pellor::fuzzing {

// Every card is a contact or a fault, and a file that is read again has changed nothing.
void fuzzCards(Bytes bytes) {
  const std::string text(textOf(bytes));
  const CardFileReading reading = readCardFile(text, "cards.vcf", {});
  std::vector<StoredCard> stored;
  for (const FileCard& card : reading.cards) {
    require(card.card.has_value(), "a card that was never read before");
    stored.push_back({.row = static_cast<std::int64_t>(stored.size() + 1),
                      .textHash = card.textHash,
                      .valueHash = card.valueHash,
                      .claim = card.claim,
                      .hasUID = card.hasUID,
                      .formattedName = card.card->formattedName.value_or("")});
  }
  const CardFileReading again = readCardFile(text, "cards.vcf", stored);
  require(again.cards.size() == reading.cards.size() && again.gone.empty(), "the cards of before");
  for (const FileCard& card : again.cards) require(card.former.has_value(), "a card that is known");
}

// A form is its own form, in every region, and is shown in one that means the same.
void fuzzDestination(Bytes bytes) {
  static const std::string regions[] = {"DE", "US", "IT", "HU", "JP", "BR"};
  if (bytes.empty()) return;
  const std::string& region = regions[bytes.front() % std::size(regions)];
  const std::string text(textOf(bytes.subspan(1)));
  IdentityService service{RegionSource([&region]() -> const std::string& { return region; })};
  const std::string raw = service.rawAddressForDestination(text);
  require(service.rawAddressForDestination(raw) == raw, "a raw address that stays one");
  if (const auto form = service.comparableNumber(text))
    require(service.comparableNumber(*form) == form, "a form that is its own form");
  const auto international = internationalPhoneNumber(text, region);
  if (!international) return;
  require(internationalPhoneNumber(*international, "US") == international, "a form that no region changes");
  LibPhoneNumber numbers{RegionSource([&region]() -> const std::string& { return region; })};
  const std::string shown = numbers.formatPhoneNumber(*international, region, 0, PhoneNumberOptionShort);
  require(internationalPhoneNumber(shown, region) == international, "a shown number that dials the same");
}

void fuzzConfiguration(Bytes bytes) {
  const auto file = WorkFolder::ofProgram().write("config.toml", bytes);
  try {
    const Configuration configuration = Configuration::read(file);
    for (const ConfigurationKey& key : configurationKeys()) {
      if (key.kind == ConfigurationKind::count) configuration.count(key.name);
      if (key.kind == ConfigurationKind::seconds) configuration.seconds(key.name);
      if (key.kind == ConfigurationKind::flag) configuration.flag(key.name);
      configuration.text(key.name);
    }
  } catch (const ConfigurationError& error) {
    require(std::string(error.what()).find('\n') == std::string::npos, "an error of one line");
  }
}

// What is written of what was read is read as the same.
void fuzzExportedList(Bytes bytes) {
  try {
    const ExportedList list = cli::readListFile(textOf(bytes)).list;
    const cli::ListFileText written = cli::textOf(list);
    require(!written.isRepaired, "texts that are UTF-8 already");
    require(cli::readListFile(written.text).list == list, "the list that was written");
  } catch (const cli::ListFileError& error) {
    require(std::string(error.what()).find('\n') == std::string::npos, "an error of one line");
  }
}

// One argument a line.
void fuzzArguments(Bytes bytes) {
  std::vector<std::string> words{"pellor"};
  for (const char character : textOf(bytes)) {
    if (words.size() == 1) words.emplace_back();
    if (character == '\0') return;
    character == '\n' ? words.emplace_back() : words.back() += character;
  }
  std::vector<const char*> arguments;
  for (const std::string& word : words) arguments.push_back(word.c_str());
  try {
    cli::parseArguments(static_cast<int>(arguments.size()), arguments.data());
  } catch (const cli::CommandError& error) {
    require(*error.what() != '\0', "an error that says something");
  }
}

}  // namespace pellor::fuzzing
