// Which records are one person.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

namespace pellor {

/// What one card says about others, all by record identifier.
struct LinkStatement {
  std::int32_t recordID = 0;
  std::vector<std::int32_t> links;      ///< records of the same person
  std::vector<std::int32_t> antiLinks;  ///< records that are never linked with this one
};

/// For each record that is linked with another one the lowest identifier of its set, which stands for the set. Links
/// hold both ways and from record to record; where a link would bring two records together of which one refuses the
/// other, that link does not count. Links are taken in ascending order, so that one input gives one output.
std::map<std::int32_t, std::int32_t> linkedSets(const std::vector<LinkStatement>& statements);

/// The changed records, those whose linked set is another one, and all that are or were linked with one of these. Both
/// maps are those of `linkedSets`.
std::set<std::int32_t> affectedRecords(const std::set<std::int32_t>& changed,
                                       const std::map<std::int32_t, std::int32_t>& formerSets,
                                       const std::map<std::int32_t, std::int32_t>& sets);

}  // namespace pellor
