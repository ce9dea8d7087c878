// One way in which a race may have gone, held against the list that it left.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/e2e/RaceJudge.h"
#include "tests/e2e/RaceModel.h"

namespace pellor {

/// `facts` are of one race whose list could be read; both outlive the object.
class RaceExplanation {
 public:
  /// What each attempt brought about, null for one that did nothing, and which pages of the list before are gone.
  struct Course {
    std::vector<const RaceFacts*> facts;
    std::set<std::size_t> gonePages;
  };

  RaceExplanation(const RaceRecord& race, const Course& course);

  /// What it leaves unexplained: lost and torn.
  const RaceVerdict& verdict() const { return _verdict; }

 private:
  struct Judged {
    std::size_t attempt;
    const RaceFact* fact;
    bool isSettled;
  };

  void identifyPages();
  void judgeEdits();
  void judgePages();
  void judgeTitle(std::size_t identity, const std::string& title);
  void judgeFriends();
  void judgeQuietFriend(const RaceFriend& before, const RacePlace& place);
  void judgeNewcomer(const std::string& who, const RaceContact& expected);

  bool settleOnce();
  bool explains(const Judged& one, const Judged& other) const;
  bool isHeldByAnEdited(const RacePlace& place, std::size_t exceptAttempt) const;
  bool isBehindTheEnd(std::size_t identity) const;
  bool mayHaveComeBack(const std::string& title) const;
  bool shows(const RaceFact& fact) const;
  bool mayHaveStayed(std::size_t identity, std::size_t index) const;
  const RaceFriend* find(const std::string& who) const;
  std::optional<RacePlace> placeOf(const std::string& who) const;  // by identities of pages
  bool isConcerned(const std::string& who, RaceFact::Kind kind, const std::string& field = {}) const;

  void lose(const std::string& reason);
  void tear(const std::string& reason);

  const RaceRecord& _race;
  const RaceList& _after;
  const Course& _course;
  std::map<std::size_t, std::size_t> _indexes;  // of pages in the list after, by their identities
  std::vector<std::size_t> _identities;         // of the pages in the list after
  std::vector<Judged> _judged;
  RaceVerdict _verdict;
};

}  // namespace pellor
