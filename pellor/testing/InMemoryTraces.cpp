#include "pellor/testing/InMemoryTraces.h"

#include <utility>

#include "pellor/runtime/Process.h"

namespace pellor {

void InMemoryTraces::erase(std::shared_ptr<ForgottenTraits> person, ErasedHandler erased) {
  Process::current().mainQueue().async([this, person = std::move(person), erased = std::move(erased)] {
    Erasure erasure{find(*person), {}};
    for (Dictionary& copy : _copies) {
      for (auto& [key, value] : person->without(copy)) copy.insert_or_assign(key, value);
    }
    if (_kept) erasure.kept.push_back(*_kept);
    erased(erasure);
  });
}

std::vector<std::string> InMemoryTraces::find(ForgottenTraits& person) {
  for (const Dictionary& copy : _copies) person.learn(copy);
  std::vector<std::string> found;
  for (const Dictionary& copy : _copies)
    if (!person.without(copy).empty()) found.emplace_back("a copy");
  return found;
}

}  // namespace pellor
