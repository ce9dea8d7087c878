#include "pellor/runtime/LongArray.h"

#include <algorithm>
#include <utility>

#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

class MadeRun final : public ArrayRun {
 public:
  explicit MadeRun(std::vector<Element> elements) : _elements(std::move(elements)) {}

  std::size_t size() const override { return _elements.size(); }

  Value at(std::size_t index) const override {
    const Element& element = _elements[index];
    return element.value ? *element.value : element.origin.run->at(element.origin.index);
  }

  bool show(std::size_t index, DictionaryView& view) const override {
    const Element& element = _elements[index];
    if (!element.value) return element.origin.run->show(element.origin.index, view);
    view.clear();
    const Dictionary* dictionary = element.value->dictionary();
    if (dictionary) view.assign(*dictionary);
    return dictionary != nullptr;
  }

  Origin origin(std::size_t index) const override {
    const Element& element = _elements[index];
    return element.value ? Origin{nullptr, index} : element.origin;
  }

 private:
  const std::vector<Element> _elements;
};

bool areEqual(const ArrayRun& left, const ArrayRun& right) {
  if (left.size() != right.size()) return false;
  for (std::size_t index = 0; index < left.size(); ++index) {
    if (left.at(index) != right.at(index)) return false;
  }
  return true;
}

}  // namespace

// An element of an element is taken from its first home, so that versions do not hang on to one another.
std::shared_ptr<const ArrayRun> ArrayRun::make(std::vector<Element> elements) {
  for (Element& element : elements) {
    if (element.value) continue;
    Origin home = element.origin.run->origin(element.origin.index);
    if (home.run) {
      element.origin = std::move(home);
    } else if (dynamic_cast<const MadeRun*>(element.origin.run.get())) {
      element = Element(element.origin.run->at(element.origin.index));
    }
  }
  return std::make_shared<const MadeRun>(std::move(elements));
}

LongArray::LongArray(std::span<const Value> elements) : _size(elements.size()) {
  for (std::size_t first = 0; first < elements.size(); first += RunSize) {
    const auto part = elements.subspan(first, std::min(RunSize, elements.size() - first));
    _runs.push_back(ArrayRun::make({part.begin(), part.end()}));
  }
}

LongArray::LongArray(std::vector<std::shared_ptr<const ArrayRun>> runs) : _runs(std::move(runs)) {
  for (std::size_t index = 0; index < _runs.size(); ++index) {
    require(index + 1 == _runs.size() || _runs[index]->size() == RunSize, "full runs before the last");
    _size += _runs[index]->size();
  }
}

Array LongArray::elements() const {
  Array elements;
  elements.reserve(_size);
  for (const auto& run : _runs) {
    for (std::size_t index = 0; index < run->size(); ++index) elements.push_back(run->at(index));
  }
  return elements;
}

bool operator==(const LongArray& left, const LongArray& right) {
  return left._size == right._size && std::ranges::equal(left._runs, right._runs, [](const auto& one, const auto& two) {
           return one == two || areEqual(*one, *two);
         });
}

}  // namespace pellor
