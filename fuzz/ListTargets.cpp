// What stands in the store under the keys of the list, whoever wrote it there.
#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "fuzz/FuzzTarget.h"
#include "fuzz/FuzzedWorld.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLThreeWayMerge.h"
#include "pellor/list/internal/DecodedHistory.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/LongArray.h"

namespace pellor::fuzzing {
namespace {

constexpr std::array ListKeys{PLFriendListKey, PLGroupTitlesKey};
constexpr std::array<std::string_view, 3> HistoryKeys{"PLFriendListHistory", "PLFriendListRemoved",
                                                      "PLFriendListExceptions"};
constexpr std::size_t MostSteps = 6;

// The bytes are a dictionary of what stands under these keys. False where they are none.
template <class Keys>
bool store(FuzzedWorld& world, Bytes bytes, const Keys& keys) {
  const auto content = decodeCBOR(bytes);
  if (!content || !content->dictionary()) return false;
  for (const std::string_view key : keys)
    if (const Value* value = valueForKey(*content->dictionary(), key)) world.set(key, *value);
  return true;
}

Dictionary formOf(const std::string& name) {
  return {{"Name", name}, {"AllValues", Array{name + "@example.org"}}, {"ABRecordID", 0}, {"Monogram", "X"}};
}

void undoAndRedoEach(FuzzedWorld& world, FuzzedProcess& process) {
  const auto steps = process.run([&] { return process.list().history(); });
  for (std::size_t index = steps.size(); index > 0 && index + MostSteps > steps.size(); --index) {
    process.run([&] { process.list().undo(steps[index - 1].id); });
    world.rest();
    requireSound(process);
  }
  process.run([&] { process.list().redo(); });
  world.rest();
}

// As the manager reads it, slot by slot.
void readPersons(FuzzedWorld& world, FuzzedProcess& process) {
  const auto stored = world.world().preferences().value(PLFriendListKey, TapnoteDomain);
  if (!stored || !stored->array()) return;
  process.run([&] {
    const Reading reading;
    for (const Value& slot : *stored->array())
      if (slot.dictionary()) PLPerson::initWithDictionaryRepresentationAddressBook(*slot.dictionary(), nullptr);
  });
}

void readSteps(FuzzedWorld& world) {
  const auto stored = world.world().preferences().value(HistoryKeys.front(), TapnoteDomain);
  if (!stored || !stored->array()) return;
  const Reading reading;
  DecodedHistory().read(LongArray(*stored->array()));
}

// A text that holds more is somebody else's to write.
bool isSaidIn(const Value& value, std::string_view text) {
  if (const auto* array = value.array())
    return std::ranges::any_of(*array, [&](const Value& element) { return isSaidIn(element, text); });
  if (const auto* dictionary = value.dictionary())
    return std::ranges::any_of(*dictionary, [&](const auto& entry) { return isSaidIn(entry.second, text); });
  return value.string() && *value.string() == text;
}

bool tellsOf(FuzzedWorld& world, std::string_view text) {
  return std::ranges::any_of(HistoryKeys, [&](std::string_view key) {
    const auto stored = world.world().preferences().value(key, TapnoteDomain);
    if (!stored) return false;
    const LongArray* array = stored->longArray();
    return isSaidIn(array ? Value(array->elements()) : *stored, text);
  });
}

}  // namespace

// Any list is read, can be edited, and is the same in the next process.
void fuzzStoredList(Bytes bytes) {
  FuzzedWorld world;
  if (!store(world, bytes, ListKeys)) return;
  FuzzedProcess one(world);
  readPersons(world, one);
  one.open();
  world.rest();
  requireSound(one);
  one.run([&] { one.list().apply(AddFriend{.destination = "new@example.org"}); });
  world.rest();
  requireSound(one);
  FuzzedProcess other(world);
  other.open();
  world.rest();
  requireSound(other);
  requireSame(one, other);
}

// Any history can be shown and taken back, and who is forgotten is in it no more.
void fuzzHistory(Bytes bytes) {
  FuzzedWorld world;
  if (!store(world, bytes, HistoryKeys)) return;
  readSteps(world);
  world.set(PLFriendListKey, Array{formOf("Cy"), Dictionary(), formOf("Dan"), Dictionary(), formOf("Eve")});
  FuzzedProcess one(world);
  one.open();
  world.rest();
  one.run([&] {
    for (const auto& person : one.list().snapshot().friends()) one.list().why(person->id);
    one.list().apply(AddFriend{.contactGUID = "guid-Ann"});
  });
  undoAndRedoEach(world, one);
  one.run([&] { one.list().forget("Dan@example.org"); });
  world.rest();
  requireSound(one);
  require(!tellsOf(world, "Dan@example.org"), "that nothing tells of who was forgotten");
  FuzzedProcess other(world);
  other.open();
  world.rest();
  requireSame(one, other);
}

// What the rules of merging say of any three lists.
void fuzzMerge(Bytes bytes) {
  const auto content = decodeCBOR(bytes);
  if (!content || !content->dictionary()) return;
  const auto listUnder = [&](std::string_view key) {
    const Value* value = valueForKey(*content->dictionary(), key);
    Array list = value && value->array() ? *value->array() : Array();
    for (Value& slot : list)
      if (!slot.dictionary()) slot = Dictionary();
    return LongArray(list);
  };
  PLMergeInput input;
  input.base = listUnder("base");
  input.theirs = listUnder("theirs");
  input.ours = listUnder("ours");
  input.groupSize = 4;
  input.maxGroupCount = 8;
  input.ourPageCount = std::min<std::uint64_t>(8, (input.ours.size() + 3) / 4);
  input.writtenForm = [](const Dictionary& form) { return form; };
  // In ours nobody is known to be a friend of base.
  for (std::size_t chunk = 0; chunk < input.ours.chunks().size(); ++chunk)
    input.ourFriends[chunk].resize(input.ours.chunks()[chunk]->size());
  const PLMergeResult merged = threeWayMerge(input);
  for (std::size_t slot = 0; slot < merged.list.size(); ++slot)
    require(merged.list.at(slot).dictionary() != nullptr, "a list of slots");

  PLMergeInput quiet = input;
  quiet.ours = quiet.base;
  quiet.ourFriends.clear();
  quiet.ourPageCount = std::min<std::uint64_t>(8, (quiet.ours.size() + 3) / 4);
  const PLMergeResult theirs = threeWayMerge(quiet);
  require(encodeCBOR(theirs.list.elements()) == encodeCBOR(input.theirs.elements()), "theirs where ours is base");
}

}  // namespace pellor::fuzzing
