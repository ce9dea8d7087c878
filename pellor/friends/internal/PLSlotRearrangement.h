// How a list of friends becomes another list, most of whose friends it has already, somewhere else.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "pellor/friends/internal/PLSlotList.h"

namespace pellor {

/// Gives the slots of a list, from the first one on, to the persons that stored forms describe. Friends that lose their
/// slot are displaced: they wait behind the list, in the order in which they came, until a form describes them or the
/// end. They stay in the list's index, so that one search finds a friend wherever it is, and moving it costs as much as
/// writing down its new place.
///
/// While it lives the list's index does not know the persons that it put into slots, and the list is not edited
/// otherwise, but that empty slots may be appended and an empty one filled. Main queue.
class PLSlotRearrangement {
 public:
  /// The list will have no more than `slotCount` slots while this lives.
  PLSlotRearrangement(PLSlotList& list, std::uint64_t slotCount);
  PLSlotRearrangement(const PLSlotRearrangement&) = delete;
  PLSlotRearrangement& operator=(const PLSlotRearrangement&) = delete;
  /// The displaced are friends no longer.
  ~PLSlotRearrangement();

  /// Displaces the friend in the slot, if there is one, and leaves the slot empty.
  void displace(std::uint64_t index);

  struct Arrival {
    const Slot& person;                 ///< null: the form describes nobody here
    std::optional<std::uint64_t> from;  ///< the slot that it left; absent for a displaced friend
  };
  /// Displaces the friend in the slot, if there is one, and puts there the friend that the form describes: of those in
  /// later slots the first one, else the first one displaced. The result lives until the next call.
  Arrival bring(const PLPersonForm& form, std::uint64_t index);

  /// Puts a new person, that no other code has, into an empty slot. It must not change while this lives.
  void put(std::uint64_t index, const std::shared_ptr<PLPerson>& person);

  /// Calls `visit` with each of the displaced, in their order.
  template <class Visit>
  void forEachDisplaced(const Visit& visit) const {
    for (const Slot& slot : _displaced) {
      if (slot != EmptySlot) visit(slot);
    }
  }

 private:
  void enterBatch();

  PLSlotList& _list;
  const std::uint64_t _firstPlaceBehind;
  std::vector<Slot> _displaced;  // empty where one was brought back; they stand behind the list, in this order
  PLPersonBatch _batch;          // persons that are to be entered into the index
};

}  // namespace pellor
