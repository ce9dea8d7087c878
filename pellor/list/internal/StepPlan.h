// Judges a step, and makes a list as it would be after it.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "pellor/list/Edit.h"
#include "pellor/list/internal/ListDraft.h"

namespace pellor {

/// Somebody who is to be added.
struct Newcomer {
  FriendId id;
  std::vector<std::string> guids;               ///< of the contact and of the records that are linked with it
  std::optional<std::string> destination = {};  ///< that was asked for, in canonical form
  bool isReachable = false;                     ///< whether there is a number or an address
};

/// An edit whose places are named by what keeps its name while other programs edit.
struct PlannedEdit {
  Edit edit;
  std::optional<Newcomer> newcomer = {};  ///< of an addition
  PageId page = {};      ///< of the wanted slot; or before which one is inserted, number 0: behind the last
  PageId inserted = {};  ///< the new page
  std::vector<FriendId> leaving = {};  ///< who leave with their page
  bool restores = false;               ///< an addition of somebody who gets back what a removal took
};

/// Who is a friend in the list that a step is judged on.
class FriendLookUp {
 public:
  virtual ~FriendLookUp() = default;
  /// In the order of slots the first one with that GUID.
  virtual std::optional<FriendId> friendWithGUID(const std::string& guid) const = 0;
  /// In the order of slots the first one with that destination, in canonical form.
  virtual std::optional<FriendId> friendWithDestination(const std::string& destination) const = 0;
  /// Whether the friend has that destination, however it is written.
  virtual bool hasDestination(FriendId id, const std::string& destination) const = 0;
};

/// Does edits to a draft, one after the other, until one of them is refused. Pure. One thread.
class StepPlan {
 public:
  /// Both outlive the plan.
  StepPlan(ListDraft& draft, const FriendLookUp& friends) : _draft(draft), _friends(friends) {}

  /// Does one more edit as it is at the call. Its places become those of the draft of now; refused: the draft is worth
  /// nothing any more.
  std::optional<RefusalReason> add(PlannedEdit& planned);
  /// Does an edit that was planned before on another list: where a page of its is gone, it may stand anywhere.
  std::optional<RefusalReason> addAgain(PlannedEdit planned);
  /// Ends the step: pages that were emptied go.
  void finish();

  /// Of the edit that was refused.
  std::optional<FriendId> inTheWay() const { return _inTheWay; }
  /// After `finish`.
  EditResult resultOf(const PlannedEdit& planned) const;

 private:
  using Answer = std::optional<RefusalReason>;

  Answer perform(const AddFriend& edit, PlannedEdit& planned);
  Answer perform(const RemoveFriend& edit, PlannedEdit& planned);
  Answer perform(const MoveFriend& edit, PlannedEdit& planned);
  Answer perform(const ChooseNumber& edit, PlannedEdit& planned);
  Answer perform(const SetReplyAs& edit, PlannedEdit& planned);
  Answer perform(const SetMetadata& edit, PlannedEdit& planned);
  Answer perform(const RenamePage& edit, PlannedEdit& planned);
  Answer perform(const FillPage& edit, PlannedEdit& planned);
  Answer perform(const InsertPage& edit, PlannedEdit& planned);
  Answer perform(const MovePage& edit, PlannedEdit& planned);
  Answer perform(const RemovePage& edit, PlannedEdit& planned);

  Answer attempt(PlannedEdit& planned);
  std::optional<Place> meantBy(Place place, PlannedEdit& planned) const;
  RefusalReason missing() const;
  Answer requireFriend(FriendId id) const;
  Answer requireNobody(const Newcomer& newcomer);
  Answer requireAllNamed(const FillPage& edit, std::size_t index);
  Answer refuse(RefusalReason reason, FriendId inTheWay);

  ListDraft& _draft;
  const FriendLookUp& _friends;
  bool _isAgain = false;
  std::vector<Newcomer> _newcomers;
  std::vector<PageId> _leftPages;  // by `RemoveFriend`
  std::optional<FriendId> _inTheWay;
};

}  // namespace pellor
