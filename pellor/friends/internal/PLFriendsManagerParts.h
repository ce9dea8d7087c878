// The parts of a friends manager that live on its main queue.
#pragma once

#include <functional>
#include <string>

#include "pellor/friends/internal/PLContactsRefresh.h"
#include "pellor/friends/internal/PLDomainSettings.h"
#include "pellor/friends/internal/PLExceptions.h"
#include "pellor/friends/internal/PLFavorites.h"
#include "pellor/friends/internal/PLIdentifierMap.h"
#include "pellor/friends/internal/PLListReader.h"
#include "pellor/friends/internal/PLListTakeover.h"
#include "pellor/friends/internal/PLLookUpQueue.h"
#include "pellor/friends/internal/PLOwnPosts.h"
#include "pellor/friends/internal/PLPageLayout.h"
#include "pellor/friends/internal/PLPersonSequence.h"
#include "pellor/friends/internal/PLRetryTimer.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/friends/internal/PLSteps.h"
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
  };

  /// The writer outlives the parts.
  PLFriendsManagerParts(Process& process, const std::string& domain, PLListWriter& writer, const Handlers& handlers);
  PLFriendsManagerParts(const PLFriendsManagerParts&) = delete;
  PLFriendsManagerParts& operator=(const PLFriendsManagerParts&) = delete;

  /// What a merge has to know of the groups.
  PLOwnPages ownPages(const PLBaseline& base) const;

  PLDomainSettings settings;
  PLListReader listReader;
  PLOwnPosts ownPosts;
  PLSlotList friendList;
  PLPageLayout pages;
  PLTitles titles;
  PLPersonSequence sourcedPersons;
  PLIdentifierMap _identifiersToPersonMap;
  PLExceptions exceptions;
  PLListTakeover takeover;
  PLContactsRefresh contactsRefresh;
  PLLookUpQueue lookUpQueue;
  PLFavorites favorites;
  PLSteps steps;
  PLRetryTimer loadRetry;
  PLRetryTimer overtakenRetry;
};

}  // namespace pellor
