// A friend list for an app: what it shows, as values, and what changes, as it changes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/list/Edit.h"
#include "pellor/list/Explanation.h"
#include "pellor/list/ExportedList.h"
#include "pellor/list/FriendSearch.h"
#include "pellor/list/History.h"
#include "pellor/list/ListChange.h"
#include "pellor/list/ListIds.h"
#include "pellor/list/ListImport.h"
#include "pellor/list/ListObserver.h"
#include "pellor/list/Reachability.h"
#include "pellor/list/Snapshot.h"
#include "pellor/platform/ContactPhoto.h"
#include "pellor/platform/ContactSearch.h"

namespace pellor {

class Observation;
class PLFriendsManager;

/// What came of an import of the favorites.
struct FavoritesImport {
  bool couldRead = false;  ///< whether favorites and contacts could be read, and there is a list; else nothing was done
  std::vector<FriendId> added = {};  ///< in the order of the favorites
  std::uint64_t withoutRoom = 0;     ///< how many were left out because the list is full
};

/// Shows and edits the list of one manager. Several faces of one manager are one list. Main queue.
class FriendList {
 public:
  /// The list of a manager, whose step client it becomes. Until the store has answered it has no page.
  /// `program`: what the history calls this program; empty: it stays unnamed.
  static std::unique_ptr<FriendList> open(std::shared_ptr<PLFriendsManager> manager, std::string program = {});
  /// The list of a domain, of the one manager that the process has for it.
  static std::unique_ptr<FriendList> openDomain(const std::string& domain, std::string program = {});
  /// Likewise; calls `beforeLoad`, which may be empty, with the list before it is read, where this is the first that
  /// the process has of the domain: an observer from there hears, after `loaded`, also of what the contacts changed as
  /// it was read, which the list shows when the observer is told.
  static std::unique_ptr<FriendList> openDomain(const std::string& domain, std::string program,
                                                const std::function<void(FriendList&)>& beforeLoad);
  /// Its observers hear nothing any more. Steps that are not stored go on, and are told of.
  ~FriendList();
  FriendList(const FriendList&) = delete;
  FriendList& operator=(const FriendList&) = delete;

  /// Whether the store has answered.
  bool isLoaded() const;
  /// What the store fails at now, of which the observers are told; absent while it works.
  std::optional<StoreTrouble> trouble() const;
  /// The list as it is now, with all edits of this program and with what other processes did as far as this one has
  /// heard of it.
  Snapshot snapshot();

  /// Calls the observer for all that happens from the snapshot of now on, until the handle is gone.
  [[nodiscard]] std::shared_ptr<Observation> observe(ListObserver observer);

  /// Does the edits as one step: all of them, or none where one of them cannot be done. The list shows them at once,
  /// the observers hear of them in a task of their own, and they are stored in one write: the main queue has to be
  /// served for that. Where another program was first the step is judged once more on what that one stored, and taken
  /// back as a whole if one of its edits no longer holds there. A store that fails is tried again until the program
  /// ends, and the observers hear of that; one that may only be read takes no step: storeNotWritable. `stored` may be
  /// empty; it is not called for a step that is refused here.
  StepAnswer apply(std::span<const Edit> edits, StoredHandler stored = {});
  StepAnswer apply(const Edit& edit, StoredHandler stored = {});
  /// What `apply` would answer, without doing it. Who would be added is looked up. It costs as much as what would
  /// change, and a look at each page.
  StepAnswer plan(std::span<const Edit> edits);

  /// The list with all that its friends carry, to be imported here or on another machine. Empty before the store has
  /// answered.
  ExportedList exported();
  /// Takes an exported list in, as one step of the history: all of it, or nothing with the reason. It is shown, stored
  /// and told of as by `apply`. Each friend is linked with the contact that fits, as a refresh does it; while the
  /// contacts cannot be read, or most of them are gone, the links stay as they were exported.
  ///
  /// Where another program was first, somebody whom both added is one friend, and stays where that one has him; what
  /// else it added, and did to friends and pages of which the import does not tell, stays. `stored` is told of a
  /// refusal if there is no room any more, or if a friend whom a replacement moves or changes is gone.
  ImportAnswer import(const ExportedList& list, ImportMode mode, StoredHandler stored = {});
  /// What `import` would answer, without doing it.
  ImportAnswer planImport(const ExportedList& list, ImportMode mode);

  /// The newest steps of all programs, at most 100, the oldest first. What a program did that keeps no history is a
  /// step of another program where this list has followed it.
  std::vector<HistoryStep> history();
  /// Takes a step back, in whatever program it was made: what is still as the step left it becomes what it was, and
  /// what somebody changed since stays and is named. Empty: the last step that a person made and that is not taken
  /// back. It is a step of its own, stored and told of like others. An automatic decision is taken back by its id
  /// alone, and no process decides it again until what it rested on changes: the contact's card, the friend's numbers,
  /// that there are two friends with one contact.
  UndoAnswer undo(const std::string& step = {}, StoredHandler stored = {});
  /// Does again what the last undo took back, until a person makes another step.
  UndoAnswer redo(StoredHandler stored = {});
  /// What `undo` and `redo` would answer, without doing it.
  UndoAnswer planUndo(const std::string& step = {});
  UndoAnswer planRedo();
  /// Why a friend is as he is; absent for one that is not in the list. Looks at the contacts.
  std::optional<Explanation> why(FriendId id);

  /// The friend leaves the list, and all that the store has of him beside it goes in the same write: his part of the
  /// history, where steps that told of nobody else go as a whole, and what he would get back when he is added again.
  /// The history keeps that somebody was removed, not who; it cannot be taken back. Another friend who shares a number
  /// or an address stays as he is, and so do the titles of pages. What another process tells of him before it has taken
  /// the step over goes with a second write. Then the platform erases what it keeps of him beside the store's values
  /// (`PersonalTraces`), and `forgotten` is called; not where the program ends before the platform has answered.
  /// Refused for a friend whom the process has no more.
  ForgetAnswer forget(FriendId id, ForgottenHandler forgotten = {});
  /// Forgets each person with this number, this address or this GUID of a contact: friends, those who are no friends
  /// any more and of whom the history or the memory of the removed tells, and those of whom the platform alone keeps
  /// something; forgetting that was interrupted goes on. Where the platform keeps nothing either `forgotten` is told
  /// notFound; without a platform that keeps anything it is refused here.
  ForgetAnswer forget(std::string_view who, ForgottenHandler forgotten = {});
  /// What `forget` would answer and erase, without doing it. Reads files of the platform: for a user who waits.
  ForgetAnswer planForget(FriendId id);
  ForgetAnswer planForget(std::string_view who);
  /// Takes all steps out of the history: none of them can be taken back any more. Refused: storeNotReadable,
  /// storeNotWritable.
  StepAnswer clearHistory(StoredHandler stored = {});

  /// The picture in the friend's contact; absent without one. May read a file.
  std::optional<ContactPhoto> photo(FriendId id);
  /// A number as it is shown to the user; any other text as it is. Any thread.
  static std::string shownNumber(std::string_view destination);

  /// The friends whom a typed text fits, the best first, at most `limit`: by GUID, by numbers and addresses, and by
  /// the names on their cards, nicknames too. Says how each fits, and whether one alone is meant.
  FoundFriends find(std::string_view text, std::size_t limit);
  /// The friend whose name is nearest to a text that was mistyped; absent when none is near (`FriendSearch::similar`).
  std::optional<FriendId> findSimilar(std::string_view text);
  /// The contacts whom it fits, friends or not; nobody while the contacts cannot be read.
  std::vector<FoundContact> findContacts(std::string_view text, std::size_t limit);

  /// Adds the favorites of the phone that are no friends yet, in the user's order, each to the first empty slot. The
  /// history tells who found no room. The first list is made of them by itself.
  FavoritesImport importFavorites();
  /// Brings every friend in step with the contacts, if these changed since the last time or a load asked for it;
  /// whether it did. While the contacts cannot be read, or most of them are gone, it stays due and runs later by
  /// itself.
  bool refresh();

  /// The messaging service that is asked whether friends can receive messages. Absent, as at first: nobody is asked,
  /// and every friend counts as reachable.
  std::optional<std::string> service() const;
  /// Sets its name; asks it for nothing.
  void setService(std::optional<std::string> name);
  /// Whether a service is asked: one is named, and the user's defaults do not say that everybody counts as reachable.
  bool checksReachability();
  /// What is known of a friend, with the age of the answer; of nobody for one that the process has no more.
  Reachability reachability(FriendId id);
  /// Asks the service about these friends, before any question about all. `answered` is called once, on the main queue
  /// and never inside the call, when each of their numbers and addresses has an answer; not when the service keeps
  /// silent, nor once the handle is gone.
  [[nodiscard]] std::shared_ptr<Observation> query(std::span<const FriendId> friends, std::function<void()> answered);
  /// Asks it about all friends; not while a question about some waits for its answer.
  [[nodiscard]] std::shared_ptr<Observation> queryAll(std::function<void()> answered);

 private:
  class Core;
  explicit FriendList(std::shared_ptr<Core> core);

  const std::shared_ptr<Core> _core;
  const std::shared_ptr<const void> _life;  // of its observers
};

}  // namespace pellor
