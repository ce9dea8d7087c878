// A forgotten person, as values that were copied from the store tell of the person.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "pellor/list/Snapshot.h"
#include "pellor/list/internal/ForgottenPerson.h"
#include "pellor/platform/PersonalTraces.h"

namespace pellor {

/// Finds the person in the list, the history and the memory of the removed; titles of pages stay, as they do in the
/// store. Who stays in the list today is somebody else in copies too. One thread at a time.
class ForgottenInCopies final : public ForgottenTraits {
 public:
  /// `list`: as it is now. Main queue.
  ForgottenInCopies(std::string domain, const ForgottenPerson& person, const Snapshot& list);

  const std::string& domain() const override { return _domain; }
  const std::set<std::string>& guids() const override { return _person.guids(); }
  const std::set<std::string>& destinations() const override { return _person.destinations(); }
  const std::set<std::string>& names() const override { return _person.names(); }
  void learn(const Dictionary& values) override;
  Dictionary without(const Dictionary& values) const override;

 private:
  bool learnFrom(const std::vector<Dictionary>& forms);

  const std::string _domain;
  ForgottenPerson _person;
};

}  // namespace pellor
