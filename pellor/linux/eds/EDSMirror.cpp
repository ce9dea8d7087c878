#include "pellor/linux/eds/EDSMirror.h"

#include <utility>

#include "pellor/linux/text/CardText.h"
#include "pellor/runtime/WallClock.h"

namespace pellor {

namespace {

CardSignature signatureOf(const std::string& text) {
  return {{1, static_cast<std::int64_t>(text.size()), contentHash(text), 0}};
}

}  // namespace

void EDSMirror::put(const Batch& contacts) {
  for (const auto& [uid, text] : contacts) {
    if (text) {
      _cards.insert_or_assign(uid, Card{signatureOf(*text), *text});
    } else {
      _cards.erase(uid);
    }
  }
}

void EDSMirror::replace(const std::string& sourceUID, const Batch& contacts) {
  {
    const MutexLock lock(_mutex);
    _cards.clear();
    put(contacts);
    _sourceUID = sourceUID;
    _isAnswering = true;
    _trouble.reset();
  }
  _answered.notifyAll();
  tell(FolderChange::all());
}

void EDSMirror::apply(const Batch& changes) {
  FolderChange change;
  for (const auto& [uid, text] : changes) change.names.insert(uid);
  {
    const MutexLock lock(_mutex);
    put(changes);
  }
  tell(change);
}

void EDSMirror::lose(Trouble trouble) {
  {
    const MutexLock lock(_mutex);
    _isAnswering = false;
    // Attempts fail in several ways while one thing is wrong: the first is what is said.
    if (_trouble) return;
    _trouble = std::move(trouble);
  }
  _answered.notifyAll();
  tell(FolderChange::all());
}

// There is nobody to tell but the caller, which is asking just now.
void EDSMirror::cannotAsk(const std::string& problem) {
  const MutexLock lock(_mutex);
  _trouble = Trouble{"cannot be asked: " + problem, {}, true};
}

void EDSMirror::beginToAsk() {
  const MutexLock lock(_mutex);
  _trouble.reset();
}

void EDSMirror::awaitAnswer(double seconds) {
  const auto end = steadyTimeAfter(seconds);
  const MutexLock lock(_mutex);
  while (!_isAnswering && !_trouble && _answered.waitUntil(_mutex, end)) continue;
}

void EDSMirror::requireAnswer(const std::string& title) {
  using Remedy = CardSourceError::Remedy;
  if (_isAnswering) return;
  if (_trouble)
    throw CardSourceError(title + " " + _trouble->problem, _trouble->isUntold ? Remedy::tryAgain : Remedy::toldOf);
  throw CardSourceError(title + " has not answered yet", Remedy::soonToldOf);
}

std::map<std::string, CardSignature> EDSMirror::list(const std::string& title) {
  const MutexLock lock(_mutex);
  requireAnswer(title);
  std::map<std::string, CardSignature> signatures;
  for (const auto& [uid, card] : _cards) signatures.emplace_hint(signatures.end(), uid, card.signature);
  return signatures;
}

std::optional<CardSignature> EDSMirror::signature(const std::string& title, const std::string& uid) {
  const MutexLock lock(_mutex);
  requireAnswer(title);
  const auto card = _cards.find(uid);
  return card == _cards.end() ? std::nullopt : std::optional(card->second.signature);
}

CardContent EDSMirror::read(const std::string& uid) {
  const MutexLock lock(_mutex);
  CardContent content;
  const auto card = _cards.find(uid);
  content.isMissing = card == _cards.end();
  if (content.isMissing) return content;
  content.signature = card->second.signature;
  content.text = card->second.text;
  return content;
}

std::string EDSMirror::sourceUID() {
  const MutexLock lock(_mutex);
  return _sourceUID;
}

std::size_t EDSMirror::contactCount() {
  const MutexLock lock(_mutex);
  return _cards.size();
}

std::optional<EDSMirror::Trouble> EDSMirror::trouble() {
  const MutexLock lock(_mutex);
  if (_isAnswering) return std::nullopt;
  return _trouble.value_or(Trouble{"has not answered yet", {}});
}

void EDSMirror::setHandler(Handler handler) {
  const MutexLock lock(_handlerMutex);
  _handler = std::move(handler);
}

void EDSMirror::tell(const FolderChange& change) {
  const MutexLock lock(_handlerMutex);
  if (_handler) _handler({change, false, {}});
}

}  // namespace pellor
