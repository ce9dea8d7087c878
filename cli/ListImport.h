// What an exported list would make of the present one.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "cli/ListFile.h"
#include "cli/ListPersons.h"
#include "cli/PageRewrite.h"
#include "cli/Session.h"

namespace pellor::cli {

/// A friend of the list who gets other content.
struct FriendUpdate {
  std::shared_ptr<PLPerson> person;
  PersonDictionary form;
};

/// A friend who goes to another place.
struct FriendMove {
  PersonAt to;
  Place from;
};

/// The list as it is to be, and how that differs from what it is. Places are those of the plan, but for `known` and
/// `removed`, which have those of before.
struct ImportPlan {
  std::vector<PageContent> pages;
  std::vector<PersonAt> added;
  std::vector<PersonAt> known;  ///< friends of the file who are friends already
  std::vector<PersonAt> removed;
  std::vector<FriendMove> moved;
  std::vector<FriendUpdate> updated;
  std::vector<std::uint64_t> titled;  ///< pages that get another title
  std::vector<std::shared_ptr<PLPerson>> withoutRoom;
  std::vector<std::shared_ptr<PLPerson>> unreachable;  ///< left out: nobody without a destination stays in a list
  std::vector<std::shared_ptr<PLPerson>> repeated;     ///< left out: a friend before them in the file has their contact

  bool changesNothing() const {
    return added.empty() && removed.empty() && moved.empty() && updated.empty() && titled.empty();
  }
};

/// Plans an import. Nothing changes by it. Used while the list stays as it is when this is made.
class ListImport {
 public:
  /// Throws CommandError for a file that holds a friend twice. The file outlives this.
  ListImport(Session& session, const ListFile& file);

  /// Those who are no friends yet, each where the file has it or where there is room.
  ImportPlan addition();
  /// The list as the file says. Throws CommandError where it does not fit into the pages.
  ImportPlan replacement();

 private:
  struct Comer {
    Place place;  // in the file
    std::string guid;
    std::shared_ptr<PLPerson> person;  // of its own, linked with the contact that fits, if one does
    const PersonAt* known = nullptr;   // the friend who it is
    bool isTwice = false;              // its contact is the one of a friend before it in the file
    bool isUnreachable = false;        // it has no destination
  };
  enum class Match { guid, name, destination };

  void readComers(const ListFile& file);
  void link();
  void match();
  void matchBy(Match how);
  const PersonAt* friendFor(const Comer& comer, Match how) const;
  bool isSame(const Comer& comer, const PersonAt& known, Match how) const;
  static bool leaveOut(ImportPlan& plan, const Comer& comer);
  bool putWhereTheFileHasIt(ImportPlan& plan, const Comer& comer) const;
  bool putWhereThereIsRoom(ImportPlan& plan, const Comer& comer) const;
  bool reach(ImportPlan& plan, std::uint64_t page) const;
  void addTitles(ImportPlan& plan) const;
  void requireFit() const;
  void putReplacing(ImportPlan& plan, const Comer& comer) const;
  static PersonDictionary formFor(const Comer& comer);

  Session& _session;
  const PLFriendsManager& _manager;
  const ListFile& _file;
  const std::vector<PersonAt> _friends;
  const std::vector<PageContent> _before;
  std::vector<Comer> _comers;
  const bool _makesPages;
  std::unordered_multimap<std::string, const PersonAt*> _byGuid;
  std::unordered_multimap<std::string, const PersonAt*> _byDestination;
  std::unordered_set<const PersonAt*> _taken;  // by friends of the file
};

}  // namespace pellor::cli
