#include "pellor/friends/internal/PLSteps.h"

#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/platform/PreferencesSyncService.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Queue.h"

namespace pellor {
namespace {

bool isOther(const PLBaseline& base, const PLStoredList& stored) {
  return base.listVersion != stored.listVersion || base.titlesVersion != stored.titlesVersion;
}

}  // namespace

std::optional<PLChangeOrigin> plOriginOf(const PLBaseline* base, const PLStoredList& stored) {
  if (!base) return std::nullopt;
  const bool isOtherList = base->listVersion != stored.listVersion;
  if (!isOtherList && base->titlesVersion == stored.titlesVersion) return std::nullopt;
  const PreferenceVersion& version = isOtherList ? stored.listVersion : stored.titlesVersion;
  return isWriteOfPairedDevice(version.write) ? PLChangeOrigin::device : PLChangeOrigin::otherProcess;
}

void PLSteps::setClient(std::weak_ptr<PLStepClient> client) {
  _client = std::move(client);
  tellLeftOut();
  if (_client.expired() || _untoldDecisions.empty()) return;
  follow([this] {
    for (PLAutomaticDecision& decision : std::exchange(_untoldDecisions, {})) tellDecision(std::move(decision));
    tellChange(PLChangeOrigin::contacts);
  });
}

// Metadata is set on a queue of its own: what was queued in the step is done before the step ends.
std::uint64_t PLSteps::perform(const std::function<void()>& edits, const std::function<void()>& finish) {
  require(!_keepsEmptiedGroups, "no step inside a step, and none while steps are judged");
  _writer.beginStep();
  keepGroupsDuring(edits);
  PLPerson::sharedMetadataQueue().sync([] {});
  finish();
  const std::uint64_t number = _writer.endStep();
  _writer.saveSteps();
  return number;
}

void PLSteps::keepGroupsDuring(const std::function<void()>& edits) {
  const bool keptThem = std::exchange(_keepsEmptiedGroups, true);
  edits();
  _keepsEmptiedGroups = keptThem;
}

// Without a decision there is no step. A caller's step takes it along.
void PLSteps::follow(const std::function<void()>& edits) {
  if (_client.expired() || _writer.steps().isMaking()) return edits();
  _hasDecided = false;
  _writer.beginStep();
  edits();
  if (_hasDecided) {
    _writer.endStep();
  } else {
    _writer.cancelStep();
  }
  areUntold() ? _writer.saveSteps() : _writer.save();
}

bool PLSteps::areUntold() const { return _told < _writer.steps().made(); }

void PLSteps::noteStored(std::uint64_t last) {
  if (last <= _told) return;
  _told = last;
  if (const auto client = _client.lock()) client->stepsWereStored(last);
}

bool PLSteps::areToBeJudged(const PLBaseline& base, const PLStoredList& stored) const {
  if (_client.expired() || _writer.steps().isMaking()) return false;
  if (_writer.storedStep() == _writer.steps().made() && !_writer.attachedArrays().isWaiting()) return false;
  return isOther(base, stored) || !_writer.attachedArrays().areKnown(stored.attached);
}

void PLSteps::judge(const PLStoredPages& theirs) {
  const auto client = _client.lock();
  if (client) keepGroupsDuring([&] { client->judgeSteps(theirs); });
}

// A list of another store does not come from the baseline, and before there was one nobody had changed it.
bool PLSteps::isForeign(const PLBaseline& base, const PLStoredList& stored) const {
  if (_client.expired() || base.listVersion.count == 0 || base.listVersion.store != stored.listVersion.store)
    return false;
  return isOther(base, stored) && _writer.attachedArrays().areHistoriesUntouched(stored.attached);
}

void PLSteps::tellForeignEdit(const PLForeignEdit& edit) const {
  const auto client = _client.lock();
  if (client) _writer.attachedArrays().setQuietlyDuring([&] { client->foreignEditWasFound(edit); });
}

void PLSteps::tellDecision(PLAutomaticDecision decision) {
  const auto client = _client.lock();
  if (!client) return _untoldDecisions.push_back(std::move(decision));
  _hasDecided = true;
  decision.step = _writer.steps().made() + 1;
  client->decisionWasMade(decision);
}

void PLSteps::forgetDecisions() {
  _untoldDecisions.clear();
  _leftOut.clear();
}

void PLSteps::noteLeftOut(const std::vector<std::shared_ptr<PLPerson>>& persons) {
  _leftOut.insert(_leftOut.end(), persons.begin(), persons.end());
}

void PLSteps::tellLeftOut() {
  const auto client = _client.lock();
  if (!client || _leftOut.empty()) return;
  follow([&] {
    _hasDecided = true;
    client->favoritesWereLeftOut(std::exchange(_leftOut, {}));
  });
}

void PLSteps::tellChange(PLChangeOrigin origin) const {
  if (const auto client = _client.lock()) client->listChangedBy(origin);
}

}  // namespace pellor
