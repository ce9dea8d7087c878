// Triples of lists for the three-way merge, made by edits that are remembered: so it is known who is who and what each
// side did, without a merge.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLThreeWayMerge.h"

namespace pellor::merging {

/// Where a form tells which friend of a triple it is, under a key that the library does not know.
inline constexpr const char* TagKey = "Tag";
using Tag = std::int64_t;

struct Friend {
  Tag tag = 0;
  Dictionary form;
};

/// Base's pages are 0, 1 and so on; appended ones follow; pages put in between are below 0.
using PageName = std::int64_t;

struct Page {
  PageName name = 0;
  std::optional<std::string> title;
  std::vector<std::optional<Friend>> places;
  bool isEmpty() const;
};

struct Place {
  PageName page = 0;
  std::size_t position = 0;
  friend auto operator<=>(const Place&, const Place&) = default;
};

/// A list, and what was done to it.
struct Side {
  std::vector<Page> pages;
  std::set<Tag> removed;
  std::set<Tag> removedAutomatically;
  std::set<Tag> added;
  std::set<PageName> titled;
  std::map<Tag, Tag> again;  ///< additions that are the object of another friend

  const Page* page(PageName name) const;
  std::optional<Place> placeOf(Tag tag) const;
  const Friend* find(Tag tag) const;
  const Friend* at(Place place) const;
  std::vector<Tag> tags() const;
};

struct Triple {
  std::size_t groupSize = 1;
  std::size_t maxGroupCount = 1;
  Side base;
  Side theirs;
  Side ours;
  /// Friends of whom another one cannot be told apart: one person twice, and friends that nothing identifies.
  std::set<Tag> alike;

  /// Base, theirs and ours, with the tags of their friends, and their titles.
  std::string description() const;
};

Triple makeTriple(std::uint64_t seed);

/// The fields of a form that change together, and those of their own beside the metadata.
inline constexpr std::array Block{PLPersonRecordIDKey, PLPersonRecordGUIDKey, PLPersonDatabaseUIDKey,
                                  PLPersonNameKey,     PLPersonAllValuesKey,  PLPersonMonogramKey};
inline constexpr std::array OwnFields{PLPersonReplyAsKey, std::string_view("PreferredDestination")};

std::optional<Value> at(const Dictionary& form, std::string_view key);
Dictionary metadataOf(const Dictionary& form);
std::vector<std::optional<Value>> blockOf(const Dictionary& form);

/// The form in which the person of a stored form would be written.
Dictionary writtenForm(const Dictionary& stored);
Dictionary formOf(const Friend& person);

LongArray listOf(const Side& side);
/// The same elements in chunks and values of their own.
LongArray copyOf(const LongArray& list);
/// `side` as ours, made of `base`; chunks that are equal are base's.
LongArray listOf(const Side& side, const LongArray& base);
Array titlesOf(const Side& side);

/// What the manager would hand over. `ours` is known to have been made of `base`.
PLMergeInput inputOf(const Triple& triple, const Side& theirs, const Side& ours);

std::string describe(const LongArray& list, std::size_t groupSize);

}  // namespace pellor::merging
