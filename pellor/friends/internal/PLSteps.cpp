#include "pellor/friends/internal/PLSteps.h"

#include <utility>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Queue.h"

namespace pellor {

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

bool PLSteps::areUntold() const { return _told < _writer.steps().made(); }

void PLSteps::noteStored(std::uint64_t last) {
  if (last <= _told) return;
  _told = last;
  if (const auto client = _client.lock()) client->stepsWereStored(last);
}

bool PLSteps::areToBeJudged(const PLBaseline& base, const PLStoredList& stored) const {
  if (_client.expired() || _writer.steps().isMaking() || _writer.storedStep() == _writer.steps().made()) return false;
  return base.listVersion != stored.listVersion || base.titlesVersion != stored.titlesVersion;
}

void PLSteps::judge(const PLStoredPages& theirs) {
  const auto client = _client.lock();
  if (client) keepGroupsDuring([&] { client->judgeSteps(theirs); });
}

void PLSteps::tellChange(PLChangeOrigin origin) const {
  if (const auto client = _client.lock()) client->listChangedBy(origin);
}

}  // namespace pellor
