// The program `pellor`, from its start to its end, and a process that has nothing to do.
#include <benchmark/benchmark.h>
#include <sys/time.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "bench/ChildProgram.h"
#include "bench/Friends.h"
#include "bench/Kept.h"
#include "bench/StoredList.h"
#include "pellor/runtime/Fatal.h"

namespace pellor::bench {
namespace {

namespace fs = std::filesystem;

/// The folders of a user with a card of each friend.
class UserWithCards {
 public:
  explicit UserWithCards(std::size_t friends) : _stored(friends) {
    const fs::path contacts = _stored.folders().data / "contacts";
    fs::create_directory(contacts);
    for (std::size_t number = 0; number < friends; ++number) {
      std::ofstream(contacts / (std::to_string(number) + ".vcf")) << cardOf(personAt(number));
    }
    _stored.write(PLRefreshAgainstContactsOnInitEnabledKey, true);
    // Brings the index of the contacts and the list in step, so that there is nothing left to change.
    for (int times = 0; times < 3; ++times) run(listCommand());
  }

  const fs::path& home() const { return _stored.home(); }
  std::vector<std::string> listCommand() const {
    return {PELLOR_PROGRAM, "--data", _stored.folders().data.string(), "list"};
  }

 private:
  StoredList _stored;
};

double milliseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

void timeProgram(benchmark::State& state, const std::vector<std::string>& command) {
  double cpu = 0;
  for (auto _ : state) {
    const rusage usage = run(command);
    cpu += milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
  }
  state.counters["cpu"] = benchmark::Counter(cpu, benchmark::Counter::kAvgIterations);
}

void pellorList(benchmark::State& state) { timeProgram(state, kept<UserWithCards>(240).listCommand()); }
BENCHMARK(pellorList)->Iterations(10)->UseRealTime();

// The yardstick: a program that links these libraries.
void startAndExit(benchmark::State& state) { timeProgram(state, {benchProgram("bench_nothing")}); }
BENCHMARK(startAndExit)->Iterations(10)->UseRealTime();

/// How often the threads of a process stopped running so far.
std::int64_t switchesOf(pid_t process) {
  std::int64_t sum = 0;
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    std::ifstream status(task.path() / "status");
    for (std::string line; std::getline(status, line);) {
      const std::size_t found = line.find("ctxt_switches:");
      if (found != std::string::npos) sum += std::stoll(line.substr(line.find(':') + 1));
    }
  }
  return sum;
}

void idle(benchmark::State& state) {
  const char* wanted = std::getenv("BENCH_IDLE_SECONDS");
  const std::chrono::seconds duration(wanted ? std::atoi(wanted) : 60);
  const auto& user = kept<UserWithCards>(240);
  for (auto _ : state) {
    ChildProgram program({benchProgram("bench_listener"), "idle", user.home().string()});
    require(program.readLine() == "ready", "a program that is ready");
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const std::int64_t before = switchesOf(program.id());
    std::this_thread::sleep_for(duration);
    state.counters["wakeups"] = static_cast<double>(switchesOf(program.id()) - before);
  }
  state.counters["seconds"] = static_cast<double>(duration.count());
}
BENCHMARK(idle)->Iterations(1)->UseRealTime();

}  // namespace
}  // namespace pellor::bench
