#include "pellor/linux/reachability/DirectoryReachability.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include "pellor/linux/text/TextLimits.h"

namespace pellor {
namespace {

using std::chrono::milliseconds;

constexpr BackOff::Pauses Pauses{.first = 1, .longest = 60};
// A directory that wishes to be left alone for days has made a mistake.
constexpr milliseconds LongestWish = std::chrono::minutes(15);
constexpr milliseconds WritePause = std::chrono::seconds(1);

DestinationStatuses unknownStatuses(const std::set<std::string>& destinations) {
  DestinationStatuses statuses;
  for (const std::string& destination : destinations) statuses.emplace(destination, DestinationStatus::unknown);
  return statuses;
}

}  // namespace

DirectoryReachability::DirectoryReachability(Process& process, std::shared_ptr<ReachabilityService> conversions,
                                             std::unique_ptr<DestinationDirectory> directory, LogHandle log,
                                             DirectoryReachabilityOptions options)
    : _process(process),
      _conversions(std::move(conversions)),
      _directory(std::move(directory)),
      _log(std::move(log)),
      _options(std::move(options)),
      _answers({_options.dataFolder, _directory->account()}, _options.wallClock, _log),
      _pauses(Pauses) {}

DirectoryReachability::~DirectoryReachability() {
  if (_bus) _bus->removeObserver(this, ReachabilityNewsName);
  if (!_thread.isStarted()) return;
  {
    const MutexLock lock(_mutex);
    _isStopping = true;
  }
  _changed.notifyOne();
  _directory->cancel();
  _thread.join();
}

std::optional<std::string> DirectoryReachability::identifierForPhoneNumber(std::string_view number) {
  return _conversions->identifierForPhoneNumber(number);
}

std::optional<std::string> DirectoryReachability::identifierForEmailAddress(std::string_view address) {
  return _conversions->identifierForEmailAddress(address);
}

std::optional<std::string> DirectoryReachability::identifierForPhoneNumberWithOptions(
    std::string_view number, std::optional<std::string> countryCode, std::uint32_t options) {
  return _conversions->identifierForPhoneNumberWithOptions(number, std::move(countryCode), options);
}

std::string DirectoryReachability::rawAddressForDestination(std::string_view destination) {
  return _conversions->rawAddressForDestination(destination);
}

std::optional<std::string> DirectoryReachability::comparableNumber(std::string_view number) {
  return _conversions->comparableNumber(number);
}

bool DirectoryReachability::queryStatusForDestinations(const std::set<std::string>& destinations,
                                                       const std::optional<std::string>& /*serviceName*/,
                                                       bool hasPriority, std::weak_ptr<ReachabilityClient> client) {
  _process.requireMainQueue("DirectoryReachability::queryStatusForDestinations");
  if (const auto asker = client.lock()) asker->queryDidStart(destinations, hasPriority);
  if (destinations.empty() || !ensureStarted()) {
    post(std::move(client), unknownStatuses(destinations));
    return true;
  }
  {
    const MutexLock lock(_mutex);
    std::deque<Question>& waiting = hasPriority ? _urgent : _others;
    for (const std::string& destination : destinations) waiting.push_back({destination, client});
  }
  _changed.notifyOne();
  return true;
}

bool DirectoryReachability::ensureStarted() {
  if (_thread.isStarted()) return true;
  const auto refusal = _thread.start("pellor-reach", [this] { serve(); });
  if (!refusal) return true;
  _role.isThisThread();  // there is none yet
  note({{}, ServiceThread::problemText(*refusal), {}});
  return false;
}

void DirectoryReachability::serve() {
  _role.isThisThread();
  for (auto questions = next(); !questions.empty(); questions = next()) {
    std::erase_if(questions, [](const Question& question) { return question.client.expired(); });
    const DestinationStatuses statuses = statusesOf(questions);
    if (isStopping()) break;
    if (!isMoreWaiting() || _options.clock() >= _writesAfter) writeAnswers();
    report(questions, statuses);
  }
  writeAnswers();
}

/// What is to be asked for next, none when the thread is to end.
std::vector<DirectoryReachability::Question> DirectoryReachability::next() {
  const MutexLock lock(_mutex);
  while (!_isStopping && _urgent.empty() && _others.empty()) _changed.wait(_mutex);
  if (_isStopping) return {};
  std::deque<Question>& waiting = _urgent.empty() ? _others : _urgent;
  const auto end = waiting.begin() + static_cast<std::ptrdiff_t>(std::min(waiting.size(), _directory->largestQuery()));
  std::vector<Question> taken(std::make_move_iterator(waiting.begin()), std::make_move_iterator(end));
  waiting.erase(waiting.begin(), end);
  return taken;
}

bool DirectoryReachability::isStopping() {
  const MutexLock lock(_mutex);
  return _isStopping;
}

bool DirectoryReachability::isMoreWaiting() {
  const MutexLock lock(_mutex);
  return !_urgent.empty() || !_others.empty();
}

DestinationStatuses DirectoryReachability::statusesOf(const std::vector<Question>& questions) {
  std::map<std::string, std::optional<std::string>> identifiers;
  std::set<std::string> asked;
  for (const Question& question : questions) {
    const auto [place, isNew] = identifiers.try_emplace(question.destination);
    if (isNew) place->second = identifierOf(question.destination);
    if (place->second && _directory->couldKnow(*place->second)) asked.insert(*place->second);
  }
  const DestinationStatuses known = lookUp(asked);
  DestinationStatuses statuses;
  for (const auto& [destination, identifier] : identifiers) {
    const auto found = identifier ? known.find(*identifier) : known.end();
    statuses.emplace(destination, found == known.end() ? DestinationStatus::unknown : found->second);
  }
  return statuses;
}

std::optional<std::string> DirectoryReachability::identifierOf(const std::string& destination) {
  const std::string raw = _conversions->rawAddressForDestination(destination);
  if (isTooLongForDestination(raw)) return std::nullopt;
  const bool isAddress = destination.find('@') != std::string::npos || destination.find("mailto:") != std::string::npos;
  return isAddress ? _conversions->identifierForEmailAddress(raw) : _conversions->identifierForPhoneNumber(raw);
}

DestinationStatuses DirectoryReachability::lookUp(const std::set<std::string>& identifiers) {
  if (identifiers.empty() || (_isAway && _options.clock() < _restsUntil)) return {};
  DestinationDirectory::Answer answer = _directory->lookUp(identifiers);
  // A query that was cancelled says nothing of the directory.
  if (!isStopping()) note(answer);
  remember(answer);
  return std::move(answer.statuses);
}

void DirectoryReachability::note(const DestinationDirectory::Answer& answer) {
  const bool wasAway = std::exchange(_isAway, !answer.problem.empty());
  if (_isAway) {
    if (!wasAway) _pauses.reset();
    const std::chrono::steady_clock::duration wish = std::min(answer.pause, LongestWish);
    _restsUntil = _options.clock() + std::max(steadyDuration(_pauses.next()), wish);
  }
  if (_isAway == wasAway) return;
  if (_isAway) {
    // What a service says may hold what it was asked, or who asks.
    _log.log("%@ cannot be asked who is reachable: %@", redactable(_directory->name()), redactable(answer.problem));
  } else {
    _log.log("%@ can be asked again who is reachable", redactable(_directory->name()));
  }
}

void DirectoryReachability::remember(const DestinationDirectory::Answer& answer) {
  const double now = _options.wallClock();
  std::optional<double> lifetime;
  if (answer.lifetime) lifetime = static_cast<double>(answer.lifetime->count());
  AnswerMemory::Answers answers;
  for (const auto& [identifier, status] : answer.statuses)
    answers.emplace(identifier, StatusAnswer{status, now, "", lifetime});
  _answers.add(answers);
}

void DirectoryReachability::writeAnswers() {
  _writesAfter = _options.clock() + WritePause;
  if (!_answers.write() || !_options.notifyBus) return;
  _process.mainQueue().async([notifyBus = _options.notifyBus] { notifyBus()->post(ReachabilityNewsName); });
}

std::optional<StatusAnswer> DirectoryReachability::lastKnownStatus(std::string_view destination) {
  _process.requireMainQueue("DirectoryReachability::lastKnownStatus");
  listenForNews();
  const auto identifier = identifierOf(std::string(destination));
  auto answer = identifier ? _answers.find(*identifier) : std::nullopt;
  if (answer) answer->service = _directory->name();
  return answer;
}

void DirectoryReachability::listenForNews() {
  if (_bus || !_options.notifyBus) return;
  _bus = _options.notifyBus();
  _bus->addObserver(
      this, [this] { _answers.readAgain(); }, ReachabilityNewsName);
}

/// One part for each client.
void DirectoryReachability::report(const std::vector<Question>& questions, const DestinationStatuses& statuses) {
  std::map<std::weak_ptr<ReachabilityClient>, DestinationStatuses, std::owner_less<>> parts;
  for (const auto& [destination, client] : questions) parts[client].insert(*statuses.find(destination));
  for (auto& [client, part] : parts) post(client, std::move(part));
}

void DirectoryReachability::post(std::weak_ptr<ReachabilityClient> client, DestinationStatuses statuses) {
  _process.mainQueue().async([client = std::move(client), statuses = std::move(statuses)] {
    if (const auto asker = client.lock()) asker->queryDidAnswer(statuses);
  });
}

}  // namespace pellor
