#include "tests/cli/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <iterator>
#include <sstream>
#include <utility>

namespace pellor {
namespace {

// After which a program that says nothing hangs, in milliseconds.
constexpr int HangsAfter = 60'000;

struct Pipe {
  FileDescriptor readEnd;
  FileDescriptor writeEnd;
};

Pipe makePipe() {
  std::array<int, 2> ends{-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) ADD_FAILURE() << "no pipe";
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (std::string& text : texts) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

// In the child the descriptors are 0, 1 and 2; signals are as in a fresh login.
pid_t spawn(std::vector<std::string> command, std::vector<std::string> environment, std::array<int, 3> descriptors) {
  const std::vector<char*> arguments = pointers(command), variables = pointers(environment);
  const pid_t id = ::fork();
  EXPECT_GE(id, 0) << "cannot start " << command.front();
  if (id != 0) return std::max(id, 0);
  for (int target = 0; target < 3; ++target) ::dup2(descriptors[static_cast<std::size_t>(target)], target);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int ignoredByTests : {SIGPIPE, SIGHUP}) std::signal(ignoredByTests, SIG_DFL);
  ::execvpe(arguments.front(), arguments.data(), variables.data());
  ::_exit(127);
}

}  // namespace

Home::Home() {
  for (const char* name : {"data/pellor/contacts", "config", "state", "run"}) {
    std::filesystem::create_directories(_folder / name);
  }
  std::filesystem::permissions(_folder / "run", std::filesystem::perms::owner_all);
}

void Home::addContact(const std::string& guid, const std::string& name, const std::string& lines) const {
  const auto part = _folder / (guid + ".part");
  writeFile(part, "BEGIN:VCARD\nVERSION:3.0\nUID:" + guid + "\nFN:" + name + "\n" + lines + "END:VCARD\n");
  std::filesystem::rename(part, contactsFolder() / (guid + ".vcf"));
}

std::vector<std::string> Home::environment() const {
  const auto folder = [this](const char* name) { return (_folder / name).string(); };
  std::vector<std::string> result = {"PATH=/usr/bin:/bin",
                                     "HOME=" + folder(""),
                                     "XDG_DATA_HOME=" + folder("data"),
                                     "XDG_CONFIG_HOME=" + folder("config"),
                                     "XDG_STATE_HOME=" + folder("state"),
                                     "XDG_RUNTIME_DIR=" + folder("run"),
                                     "LC_ALL=de_DE.UTF-8",
                                     "LANGUAGE=en"};
  for (const std::string& variable : _variables) {
    const std::string name = variable.substr(0, variable.find('=') + 1);
    std::erase_if(result, [&](const std::string& known) { return known.starts_with(name); });
    result.push_back(variable);
  }
  // Of the sanitizers, and what puts names into their reports.
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* value = ::getenv(name)) result.push_back(std::string(name) + "=" + value);
  }
  return result;
}

Program::Program(const Home& home, const std::vector<std::string>& command, Redirection redirection) {
  // A program that has ended too early fails the test where its answer is missing.
  std::signal(SIGPIPE, SIG_IGN);
  Pipe input = makePipe();
  Pipe output = makePipe();
  Pipe errors = makePipe();
  const auto chosen = [](int redirected, const FileDescriptor& end) { return redirected < 0 ? end.get() : redirected; };
  _id = spawn(command, home.environment(),
              {chosen(redirection.input, input.readEnd), chosen(redirection.output, output.writeEnd),
               chosen(redirection.errors, errors.writeEnd)});
  _input = std::move(input.writeEnd);
  _output.descriptor = std::move(output.readEnd);
  _errors.descriptor = std::move(errors.readEnd);
}

Program::~Program() {
  if (_id == 0) return;
  sendSignal(SIGKILL);
  ::waitpid(_id, nullptr, 0);
}

std::string Program::readLine() { return lineOf(_output); }

std::string Program::readErrorLine() { return lineOf(_errors); }

void Program::write(const std::string& text) const {
  static_cast<void>(!::write(_input.get(), text.data(), text.size()));
}

void Program::sendSignal(int signal) const {
  if (_id > 0) ::kill(_id, signal);
}

ProgramResult Program::finish() {
  _input.close();
  ProgramResult result;
  while (_output.descriptor && readMore(_output)) {
  }
  while (readMore(_errors)) {
  }
  int status = 0;
  ::waitpid(std::exchange(_id, 0), &status, 0);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  result.output = std::move(_output.unread);
  result.errors = std::move(_errors.unread);
  return result;
}

// Both streams are short enough for the pipe to hold one while the other is read.
bool Program::readMore(Stream& stream) {
  pollfd awaited{stream.descriptor.get(), POLLIN, 0};
  if (::poll(&awaited, 1, HangsAfter) != 1) {
    ADD_FAILURE() << "the program hangs";
    return false;
  }
  std::array<char, 4096> buffer;
  const ssize_t count = ::read(stream.descriptor.get(), buffer.data(), buffer.size());
  if (count <= 0) return false;
  stream.unread.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

std::string Program::lineOf(Stream& stream) {
  auto end = stream.unread.find('\n');
  while (end == std::string::npos && readMore(stream)) end = stream.unread.find('\n');
  if (end == std::string::npos) {
    ADD_FAILURE() << "the program has ended after: " << stream.unread;
    return {};
  }
  std::string line = stream.unread.substr(0, end);
  stream.unread.erase(0, end + 1);
  return line;
}

std::vector<std::string> pellorCommand(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {PELLOR_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

ProgramResult pellor(const Home& home, const std::vector<std::string>& arguments) {
  return Program(home, pellorCommand(arguments)).finish();
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

}  // namespace pellor
