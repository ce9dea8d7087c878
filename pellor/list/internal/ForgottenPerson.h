// Somebody of whom nothing is to be kept.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/list/internal/StepRecord.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// Knows a person by all GUIDs, numbers, addresses and names that the person ever had, as far as the history tells.
class ForgottenPerson {
 public:
  /// Whether it is a friend who stays in the list: two members of a family may share a line.
  using IsOfAnother = std::function<bool(const FriendIdentity&)>;
  explicit ForgottenPerson(IsOfAnother isOfAnother) : _isOfAnother(std::move(isOfAnother)) {}

  /// The person, where somebody else knows who stays.
  ForgottenPerson amongOthers(IsOfAnother isOfAnother) const;

  /// The person is known by this too.
  void add(const FriendIdentity& identity);
  /// A page that has this number of a friend tells of the person.
  void addFingerprint(std::uint32_t fingerprint) { _fingerprints.insert(fingerprint); }
  /// The person is known by what became of it, and what it was before.
  void learn(const std::vector<StepRecord>& steps);

  /// Whether it is the person: by the GUID; by a number or an address where one side has no GUID, or the name is the
  /// person's too; without any of these by the name.
  bool isTheirs(const FriendIdentity& identity) const;
  bool isTheirs(const Dictionary& form) const { return !form.empty() && isTheirs(identityOf(form)); }

  /// The step without all that tells of the person; absent where it told of nobody else. It cannot be taken back where
  /// that makes no sense any more: nothing is left of what it was made for, or its evidence told of the person.
  std::optional<StepRecord> without(StepRecord step) const;

  const std::set<std::string>& guids() const { return _guids; }
  const std::set<std::string>& destinations() const { return _destinations; }
  const std::set<std::string>& names() const { return _names; }

 private:
  bool isNamed(const std::string& text) const;
  bool isMentioned(const Value& value) const;
  bool isMentioned(const std::string& text) const;

  IsOfAnother _isOfAnother;
  std::set<std::string> _guids;
  std::set<std::string> _destinations;
  std::set<std::string> _names;
  std::set<std::uint32_t> _fingerprints;
};

}  // namespace pellor
