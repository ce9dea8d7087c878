// Copies of stored values, from which people are to be erased.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/platform/PersonalTraces.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// What a port keeps beside its store, in memory: copies of the values of one domain. Processes may share it. Main
/// queue.
class InMemoryTraces : public PersonalTraces {
 public:
  /// Keeps a copy of values, by key.
  void addCopy(Dictionary values) { _copies.push_back(std::move(values)); }
  const std::vector<Dictionary>& copies() const { return _copies; }
  /// What every erasure leaves; absent, as at first: nothing.
  void setKept(std::optional<KeptTrace> kept) { _kept = std::move(kept); }

  void erase(std::shared_ptr<ForgottenTraits> person, ErasedHandler erased) override;
  std::vector<std::string> find(ForgottenTraits& person) override;

 private:
  std::vector<Dictionary> _copies;
  std::optional<KeptTrace> _kept;
};

}  // namespace pellor
