// The parts of a friends manager that live on its main queue.
#pragma once

#include <functional>
#include <string>

#include "pellor/friends/internal/PLContactsRefresh.h"
#include "pellor/friends/internal/PLDomainSettings.h"
#include "pellor/friends/internal/PLExceptions.h"
#include "pellor/friends/internal/PLFavorites.h"
#include "pellor/friends/internal/PLListCounters.h"
#include "pellor/friends/internal/PLListReader.h"
#include "pellor/friends/internal/PLListTakeover.h"
#include "pellor/friends/internal/PLOwnPosts.h"
#include "pellor/friends/internal/PLPageLayout.h"
#include "pellor/friends/internal/PLPersonLookUp.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/friends/internal/PLSteps.h"
#include "pellor/friends/internal/PLStoreFailures.h"
#include "pellor/friends/internal/PLTitles.h"

namespace pellor {

class PLListWriter;

/// Made in this order, each part before those that use it. Main queue.
struct PLFriendsManagerParts {
  /// What the parts ask the manager for.
  struct Handlers {
    std::function<void()> groupListChanged;
    std::function<void()> refreshIsDue;
    std::function<void(const PLAutomaticDecision&)> decidedOn;
    std::function<void()> favoritesAreDue;
    PLStoreFailures::Handlers storeFailures;
  };

  /// The writer outlives the parts.
  PLFriendsManagerParts(Process& process, const std::string& domain, PLListWriter& writer, const Handlers& handlers);
  PLFriendsManagerParts(const PLFriendsManagerParts&) = delete;
  PLFriendsManagerParts& operator=(const PLFriendsManagerParts&) = delete;

  /// What a merge has to know of the groups.
  PLOwnPages ownPages(const PLBaseline& base) const;
  /// Takes a group out with its slots; its title goes with it.
  void _removeGroupAtIndex(std::uint64_t index);
  /// Asks for a write of the list as it is.
  void save();
  /// Lets the save queue see the list as it is.
  void publishList();
  /// Friends stand elsewhere, came or left, or groups did: the list goes out with the next save, and the titles where
  /// pages moved.
  void markLayoutChanged();
  /// Titles that were set since they were stored go out with the next save.
  void markNewTitles();
  /// `stored` is about to be merged: the client of the steps judges those that are not stored, and hears of what
  /// programs without a history wrote.
  void judgeSteps(const PLStoredList& stored);

  PLListWriter& writer;
  PLDomainSettings settings;
  PLListReader listReader;
  PLOwnPosts ownPosts;
  PLSlotList friendList;
  PLPageLayout pages;
  PLTitles titles;
  PLPersonLookUp lookUp;
  PLExceptions exceptions;
  PLListTakeover takeover;
  PLContactsRefresh contactsRefresh;
  PLFavorites favorites;
  PLSteps steps;
  PLStoreFailures storeFailures;
  PLListCounters counters;
};

}  // namespace pellor
