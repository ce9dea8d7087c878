// Files that programs of one user share: counters of the bus, memories of forms.
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

#include "fuzz/FuzzTarget.h"
#include "fuzz/WorkFolder.h"
#include "pellor/linux/notify/NotifyFolder.h"
#include "pellor/linux/phone/CanonicalFormStore.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/SimulatedScheduler.h"

namespace pellor::fuzzing {
namespace {

namespace fs = std::filesystem;

const std::string Name = "list-changed";
const std::string Region = "DE";

// Whatever stands in a counter, posts of others are heard from then on.
void fuzzCounter(Bytes bytes) {
  const fs::path file = WorkFolder::ofProgram().write(Name, bytes);
  const auto scheduler = std::make_shared<SimulatedScheduler>(1);
  const auto log = std::make_shared<LogCollector>();
  Process one(scheduler, log), other(scheduler, log);
  const auto busOf = [&](Process& process) {
    const Process::Scope scope(process);
    return NotifyFolder::make(process, file.parent_path(), LogHandle("fuzz", "bus", log),
                              NotifyFolder::Hearing::whenSettling);
  };
  auto poster = busOf(one), listener = busOf(other);
  std::size_t heard = 0;
  {
    const Process::Scope scope(other);
    listener->addObserver(
        &heard, [&heard] { ++heard; }, Name);
  }
  {
    const Process::Scope scope(one);
    poster->post(Name);
    poster.reset();
  }
  const Process::Scope scope(other);
  other.settle(60);
  require(heard > 0, "a post that is heard");
  listener.reset();
}

// Whatever stands in the file, a form that is added is there for the next program.
void fuzzForms(Bytes bytes) {
  WorkFolder::ofProgram().write("forms-" + Region, bytes);
  const CanonicalFormFolder folder{WorkFolder::ofProgram().path(), LogHandle("fuzz", "forms", nullptr),
                                   [](const Task& task) { task(); }, "forms"};
  const auto store = CanonicalFormStore::open(Region, folder);
  if (!store->find("030 123")) store->add("030 123", "+4930123");
  const auto next = CanonicalFormStore::open(Region, folder);
  require(next->find("030 123") == store->find("030 123"), "a form that is remembered");
}

}  // namespace

void fuzzBusFile(Bytes bytes) {
  if (bytes.empty()) return;
  bytes.front() % 2 == 0 ? fuzzCounter(bytes.subspan(1)) : fuzzForms(bytes.subspan(1));
}

}  // namespace pellor::fuzzing
