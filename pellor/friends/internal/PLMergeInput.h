// What a merge of two versions of the list gets, and what it gives.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// Where each friend of one list stands in another, for the slots of a chunk (a chunk of LongArray::ChunkSize slots).
/// Absent: the slot is empty, or its friend is not in the other list.
using PLChunkOrigins = std::vector<std::optional<std::uint64_t>>;
/// By the index of the chunk. In a chunk that is not named, each friend stands in the slot of the same index there, as
/// far as that slot is not empty.
using PLFriendOrigins = std::map<std::uint64_t, PLChunkOrigins>;
/// For each page of one list the page of another that it is; absent: none. Empty: page i is page i.
using PLPageOrigins = std::vector<std::optional<std::uint64_t>>;

/// The three versions of the list, and what the merge has to know of ours.
///
/// Lists are slots in the stored form: a dictionary for each friend, an empty one for an empty slot. Chunks that are
/// the same object are equal and are not looked at. Titles are texts by page; elements that are no texts, and those
/// beyond the end, are none.
struct PLMergeInput {
  LongArray base;  ///< the stored list that this process wrote or took over last
  Array baseTitles;
  LongArray theirs;  ///< the stored list
  Array theirTitles;

  LongArray ours;              ///< the live list, as it would be written
  PLFriendOrigins ourFriends;  ///< where our friends stand in base, by their objects
  /// Our groups as pages of base, ascending; one for each group, or none. Groups at the end that are no page of base
  /// were appended; a group in front of one that is was put between pages of base. A group that an append gave slots
  /// which the list had already is the page of base that they were.
  PLPageOrigins ourPages;
  std::uint64_t ourPageCount = 0;                   ///< how many groups we have
  std::map<std::uint64_t, std::string> ourTitles;   ///< by page: titles that were set here and are not stored
  std::vector<std::uint64_t> ourAutomaticRemovals;  ///< slots of base, ascending: removed by clean-up, not by a person

  std::uint64_t groupSize = 1;      ///< slots of a page
  std::uint64_t maxGroupCount = 1;  ///< how many pages may be laid out
  /// The form in which the person made of a stored form would be written: bringing into canonical form is no edit.
  std::function<Dictionary(const Dictionary&)> writtenForm;
};

struct PLMergeResult {
  LongArray list;
  Array titles;
  PLFriendOrigins theirFriends;        ///< where the friends of the result stand in theirs
  PLPageOrigins theirPages;            ///< the pages of the result as pages of theirs; those that theirs lacks: absent
  std::vector<std::uint64_t> leftOut;  ///< slots of ours: additions for which there was no room, ascending
  bool differsInLayout = false;        ///< from theirs: somebody stands elsewhere, was added or removed; pages differ
  bool differsInTitles = false;        ///< from theirs
  bool needsRefresh = false;           ///< both sides changed what follows a contact of one friend
};

}  // namespace pellor
