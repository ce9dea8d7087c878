#include "pellor/linux/contacts/AlphabeticalOrder.h"

#include <unicode/ucol.h>
#include <unicode/unistr.h>

#include <cstdint>
#include <stdexcept>

#include "pellor/linux/text/TextLimits.h"

namespace pellor {
namespace {

std::shared_ptr<const UCollator> collatorOf(const std::string& locale) {
  UErrorCode error = U_ZERO_ERROR;
  // An absent locale would be that of the process.
  std::shared_ptr<UCollator> collator(ucol_open(locale.c_str(), &error), ucol_close);
  if (U_FAILURE(error)) throw std::runtime_error("ICU has no collation data");
  return collator;
}

}  // namespace

AlphabeticalOrder::AlphabeticalOrder(const std::string& locale) : _collator(collatorOf(locale)) {}

std::string AlphabeticalOrder::key(std::string_view text) const {
  const std::string_view name = nameWithinLimit(text);
  const auto letters =
      icu::UnicodeString::fromUTF8(icu::StringPiece(name.data(), static_cast<std::int32_t>(name.size())));
  const auto written = [&](std::string& key) {
    return ucol_getSortKey(_collator.get(), letters.getBuffer(), letters.length(),
                           reinterpret_cast<std::uint8_t*>(key.data()), static_cast<std::int32_t>(key.size()));
  };
  std::string key(static_cast<std::size_t>(letters.length()) * 4 + 8, '\0');
  const auto size = static_cast<std::size_t>(written(key));
  const bool isWhole = size <= key.size();
  key.resize(size);
  if (!isWhole) written(key);
  return key;
}

}  // namespace pellor
