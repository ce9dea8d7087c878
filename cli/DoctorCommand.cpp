// doctor

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/Passwords.h"
#include "cli/Services.h"
#include "pellor/linux/Configuration.h"

namespace pellor::cli {
namespace {

using State = ServiceReport::State;

struct PartReport {
  std::string part;
  std::string chosen;
  ServiceReport report;
};

const char* nameOf(State state) {
  switch (state) {
    case State::works:
      return "works";
    case State::fails:
      return "fails";
    case State::unused:
      break;
  }
  return "unused";
}

std::vector<PartReport> examine(Process& process, const Configuration& configuration) {
  std::vector<PartReport> reports;
  for (const std::string_view part : configurationParts()) {
    const std::string chosen = *configuration.text(part);
    reports.push_back({std::string(part), chosen, reportOn(process, part, configuration)});
  }
  return reports;
}

std::string textOf(const PartReport& part) {
  constexpr std::size_t partWidth = 15, chosenWidth = 12, stateWidth = 8;
  const ServiceReport& report = part.report;
  const std::string margin(partWidth + chosenWidth + stateWidth, ' ');
  std::string text = fitted(part.part, partWidth) + fitted(part.chosen, chosenWidth) +
                     fitted(nameOf(report.state), stateWidth) + printable(report.detail) + "\n";
  if (!report.advice.empty()) text += margin + "-> " + printable(report.advice) + "\n";
  for (const std::string& remark : report.remarks) text += margin + printable(remark) + "\n";
  return text;
}

Json jsonOf(const std::vector<PartReport>& reports) {
  Json parts = Json::array();
  for (const PartReport& part : reports) {
    parts.push_back({{"part", part.part},
                     {"chosen", part.chosen},
                     {"state", nameOf(part.report.state)},
                     {"detail", part.report.detail},
                     {"advice", part.report.advice},
                     {"remarks", part.report.remarks}});
  }
  return {{"parts", parts}};
}

void doctor(Session& session) {
  const auto reports = examine(session.process(), session.options().configuration);
  const auto text = [&] {
    std::string all;
    for (const PartReport& part : reports) all += textOf(part);
    return all;
  };
  session.answer(text, [&] { return jsonOf(reports); });
  for (const PartReport& part : reports) {
    if (part.report.state == State::fails) throw CommandError(part.part + " fails: " + part.report.detail);
  }
}

// Files with a password or a token are named; one that stands in the configuration itself is not shown.
std::optional<std::string> shownValue(const ConfigurationKey& key, const Configuration& configuration) {
  auto value = configuration.text(key.name);
  if (value && holdsPassword(*value)) return "(set; not shown, as there is a password in it)";
  return value;
}

std::string lineOf(const ConfigurationKey& key, const Configuration& configuration) {
  constexpr std::size_t nameWidth = 26;
  const std::string value = shownValue(key, configuration).value_or("");
  return fitted(key.name, nameWidth) + (value.empty() ? "(unset)" : printable(value)) +
         (configuration.isSet(key.name) || value.empty() ? "" : " (default)") + "  # " + std::string(key.meaning) +
         "\n";
}

Json jsonOf(const ConfigurationKey& key, const Configuration& configuration) {
  return {{"key", key.name},
          {"value", cli::jsonOf(shownValue(key, configuration))},
          {"isSet", configuration.isSet(key.name)},
          {"meaning", key.meaning}};
}

void listKeys(Session& session) {
  const Configuration& configuration = session.options().configuration;
  const auto text = [&] {
    std::string all;
    for (const ConfigurationKey& key : configurationKeys()) all += lineOf(key, configuration);
    return all;
  };
  const auto json = [&] {
    Json keys = Json::array();
    for (const ConfigurationKey& key : configurationKeys()) keys.push_back(jsonOf(key, configuration));
    return Json{{"keys", keys}};
  };
  session.answer(text, json);
}

}  // namespace

void addDoctorCommand(CommandSyntax program, CommandLine& line) {
  const auto command = program.command("doctor", "Tell which parts are chosen, how they are, and what to do");
  const auto keys = std::make_shared<bool>(false);
  command.flag("--keys", *keys, "List the keys of the configuration with their values");
  command.whenGiven([&line, keys] {
    line.command = *keys ? listKeys : doctor;
    line.services = Services::ifThere;
    line.opensStore = false;
  });
}

}  // namespace pellor::cli
