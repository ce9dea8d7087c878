// What the processes of a simulated world asked for, as each of them would tell it: the judges know edits, and nothing
// of how lists are merged.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/pellor/simulation/PlainList.h"

namespace pellor {

/// A page as the author of an edit saw it: pages have no names, so it is known by who else stood on it.
struct SeenPage {
  std::size_t index = 0;
  std::set<FriendName> residents;
};

struct SeenPlace {
  SeenPage page;
  std::size_t position = 0;
};

/// How often the store had been written when it got the list, and the titles, that it has.
struct StoredVersions {
  std::uint64_t list = 0;
  std::uint64_t titles = 0;
};

struct Edit {
  enum class Kind {
    add,            ///< `placed`, with `told`; `removed` are those in whose place
    remove,         ///< `removed`; a page that held nobody else goes
    clearSlot,      ///< `removed`; the page stays
    move,           ///< `placed`: all whose place changed
    title,          ///< `page` is called `text`
    replyAs,        ///< of `who`: `text`
    metadata,       ///< of `who`: `told.metadata`
    clearMetadata,  ///< of `who`: the keys of `told.metadata`, which is what it had
    purge,
    refresh,
  };

  Kind kind = Kind::refresh;
  std::uint64_t author = 0;  ///< a process; one that is started anew is another one
  FriendName who{};
  std::map<FriendName, SeenPlace> placed{};
  std::set<FriendName> removed{};
  SeenPage page{};
  std::string text{};
  PlainFriend told{};

  StoredVersions known{};                        ///< that the author had taken over or written when it was made
  std::size_t firstLater = 0;                    ///< the first edit that was made after it was acknowledged
  std::optional<StoredVersions> acknowledged{};  ///< some that have it; absent while it may be lost

  /// "2: p3 is added at 1/0 in place of p5".
  std::string description() const;
};

/// What happened between two moments at which nothing was left to do.
struct Round {
  PlainList before;
  std::vector<Edit> edits;
  PlainList after;
  std::uint64_t maxGroupCount = 1;
  /// Friends whose contact got another name, or another record with another name, in this round or before: one of whom
  /// all that tells who it is changed at once counts as another friend, whenever a process takes it over.
  std::set<FriendName> relinked;
  /// Whether a process was not told what became of a write: one that it does not recognise, because somebody wrote over
  /// it since, counts as somebody else's, and may conflict with what the process did afterwards.
  bool hasUntoldWrites = false;
  /// Whether one of a friend who was there twice was taken out in some process: by itself or by an edit, which counts
  /// as none because the other one stayed.
  bool hasTakenOneOfTwo = false;
  /// Whether the store was replaced by its copy. What a process has not stored by then does not come from the new one:
  /// it brings who is missing there, and what it took out or changed may come out as it was.
  bool wasStoreReplaced = false;
  /// Whether each process has pages of a size of its own: then nobody can say which page is which.
  bool hasPagesOfSeveralSizes = false;

  /// Whether a page may have gone: with its last friend, as an empty one, or because several processes emptied it
  /// together, none of which had it empty.
  bool mayPagesGo() const;
  /// Whether enough friends stand where nobody touched them, behind each page that may have gone, to tell which page is
  /// which: of pages with hardly anybody in common one may be taken for its neighbour.
  bool arePagesKnown() const;
  /// Whether the author of `later` built on the outcome of `earlier`, of a lower index: its own edit, or one that was
  /// stored in a version that it had taken over.
  bool buildsOn(std::size_t later, std::size_t earlier) const;
  /// Friends whom an edit put somewhere or took out.
  std::set<FriendName> touched() const;
  /// Friends by whom nobody can tell a page: touched, or relinked.
  std::set<FriendName> unsettled() const;
  /// Where the page of an edit is now, by friends who are settled; absent when none stood on it, and
  /// when pages are not known.
  std::optional<std::size_t> pageNow(const SeenPage& page) const;
  /// Whether another process, which did not know of it, may have put somebody into the place that the edit put the
  /// friend into, or the friend itself elsewhere.
  bool isContested(std::size_t edit, const FriendName& name) const;
  /// Whether there may have been two of the friend for a while, of whom one is left: because several processes added
  /// it, or took it for another one after its contact changed.
  bool mayHaveBeenTwo(const FriendName& name) const;
  /// Whether all that came of the edits came of them alone: nobody was taken for two.
  bool canBeOrdered() const;
  /// Both lists and the edits, one a line.
  std::string text() const;
};

}  // namespace pellor
