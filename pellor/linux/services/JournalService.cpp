// log = "journal"

#include "pellor/linux/journal/JournalLog.h"
#include "pellor/linux/services/internal/BuiltAdapters.h"

namespace pellor {
namespace {

std::shared_ptr<LogSink> makeLog(const Configuration& configuration, std::shared_ptr<LogSink> fallback) {
  JournalLog::Options options;
  options.debugging = configuration.flag("journal.debug") ? JournalLog::Debugging::on : JournalLog::Debugging::off;
  return std::make_shared<JournalLog>(options, std::move(fallback));
}

ServiceReport report(Process&, const Configuration&) { return JournalLog::report(); }

}  // namespace

ServiceAdapters journalAdapters() { return {{"log", "journal", {}, report, makeLog}}; }

}  // namespace pellor
