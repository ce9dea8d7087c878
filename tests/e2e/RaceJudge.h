// Says whether what a race left can be explained by the edits that were acknowledged.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/e2e/RaceEdit.h"
#include "tests/e2e/RaceList.h"

namespace pellor {

/// What became of an edit.
enum class RaceOutcome {
  acknowledged,  ///< said to be stored
  refused,       ///< said not to be
  killed,        ///< nothing was said: it is stored or it is not
};

struct RaceAttempt {
  RaceEdit edit;
  RaceOutcome outcome = RaceOutcome::acknowledged;
};

/// A race as it is judged.
struct RaceRecord {
  RaceList before;
  std::size_t maxPages = 0;
  std::vector<RaceAttempt> attempts;
  std::map<std::string, RaceContact> changedContacts;  ///< of friends, as the contacts were when the race began
  std::map<std::string, RaceContact> newcomers;        ///< those who may be added, as their contacts are
  std::optional<RaceList> after;                       ///< absent: the list could not be read
};

struct RaceVerdict {
  int lost = 0;     ///< acknowledged edits that the list does not show, and friends who are missing
  int doubled = 0;  ///< friends who are there more than once
  int torn = 0;     ///< what no edit asked for: strangers, half an edit, pages of a wrong size, a list that is none
  int refused = 0;  ///< edits that failed though no other one was in their way
  std::vector<std::string> reasons;  ///< for people

  int faults() const { return lost + doubled + torn + refused; }
  void lose(const std::string& reason) { note(lost, "lost: " + reason); }
  void tear(const std::string& reason) { note(torn, "torn: " + reason); }
  void note(int& count, const std::string& reason) {
    ++count;
    reasons.push_back(reason);
  }
};

/// An acknowledged edit has to show in the list, unless a conflicting acknowledged one shows in its place: two edits
/// conflict when they concern one field of a friend (its place is one; its removal all of them), one place, one page's
/// title, one page's removal and anything on that page, or the last room. What no edit concerns is as it was.
///
/// Pages are named by numbers, so an edit may mean another page when its process read the list after another edit:
/// every explanation is tried, and the one that leaves the fewest faults counts.
RaceVerdict judge(const RaceRecord& race);

}  // namespace pellor
