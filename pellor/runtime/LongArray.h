// An array too long to be copied, of which versions share what they have in common.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "pellor/runtime/DictionaryView.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// Some neighbouring elements of a long array, immutable. Whoever keeps them decides how: as values, or encoded as they
/// came from a store. Any thread.
class ArrayRun {
 public:
  virtual ~ArrayRun() = default;
  ArrayRun(const ArrayRun&) = delete;
  ArrayRun& operator=(const ArrayRun&) = delete;

  virtual std::size_t size() const = 0;
  /// The element, which may have to be made for the caller.
  virtual Value at(std::size_t index) const = 0;
  /// Shows the entries of an element that is a dictionary, in `view`, for as long as the run lives. False for an
  /// element of another kind, and `view` is empty then.
  virtual bool show(std::size_t index, DictionaryView& view) const = 0;

  /// Where an element comes from: itself, or the run of an earlier version that it was taken over from.
  struct Origin {
    std::shared_ptr<const ArrayRun> run;  ///< null: the element is a value of this run's own
    std::size_t index = 0;
  };
  virtual Origin origin(std::size_t index) const { return {nullptr, index}; }

  /// Whether this run is `other`, or was made of it by whoever keeps it, so that it has the same elements. False does
  /// not mean that it has not.
  virtual bool isCopyOf(const ArrayRun& other) const { return this == &other; }

  /// One element of a new run: a value, or an element of another run, which is neither made nor copied.
  struct Element {
    Element(Value made) : value(std::move(made)) {}
    Element(std::shared_ptr<const ArrayRun> run, std::size_t index) : origin{std::move(run), index} {}
    std::optional<Value> value;
    Origin origin;
  };
  static std::shared_ptr<const ArrayRun> make(std::vector<Element> elements);

 protected:
  ArrayRun() = default;
};

/// The elements are in runs of RunSize, of which the last may be shorter. Equal runs that are one object are equal
/// without looking. Copying and replacing a run costs no element.
class LongArray {
 public:
  static constexpr std::size_t RunSize = 32;

  LongArray() = default;
  explicit LongArray(std::span<const Value> elements);
  /// Every run but the last has RunSize elements.
  explicit LongArray(std::vector<std::shared_ptr<const ArrayRun>> runs);

  std::size_t size() const { return _size; }
  const std::vector<std::shared_ptr<const ArrayRun>>& runs() const { return _runs; }
  Value at(std::size_t index) const { return _runs[index / RunSize]->at(index % RunSize); }
  /// All elements, made for the caller.
  Array elements() const;

  friend bool operator==(const LongArray& left, const LongArray& right);

 private:
  std::vector<std::shared_ptr<const ArrayRun>> _runs;
  std::size_t _size = 0;
};

}  // namespace pellor
