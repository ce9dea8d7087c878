// A compact hash table of addresses, each with a number: what the indexes over persons are made of.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "pellor/friends/internal/PLPrefetch.h"

namespace pellor {

/// Entries are pairs of an address, which is not 0, and a number of 32 bits. `HashOf` makes an entry's hash of the two,
/// so that the table can grow without asking anybody; the owner alone knows what the entries mean, and recognises the
/// one that it looks for. Equal entries may be entered several times.
///
/// Entries lie in buckets of one cache line, five in each. An entry whose bucket is full goes into the next one that
/// has room, and every full bucket on the way counts that it was passed: a search ends at the first bucket that nothing
/// passed. Removal takes the counts back, so that no trace of an entry remains. The buckets are in the order of the
/// hashes, and growing walks through old and new ones side by side.
template <class HashOf>
class PLBucketTable {
  static constexpr unsigned Places = 5;
  struct alignas(64) Bucket {
    std::array<std::uintptr_t, Places> addresses{};  // 0 where there is room
    std::array<std::uint32_t, Places> numbers{};
    std::uint32_t passed = 0;
  };

 public:
  /// Where an entry lies, until the next insertion or removal; false when it was not found.
  class Cursor {
   public:
    Cursor() = default;
    explicit operator bool() const { return _bucket != nullptr; }
    std::uintptr_t address() const { return _bucket->addresses[_place]; }
    std::uint32_t number() const { return _bucket->numbers[_place]; }
    /// Replaces the entry by one with an equal hash.
    void assign(std::uintptr_t address, std::uint32_t number) const {
      _bucket->addresses[_place] = address;
      _bucket->numbers[_place] = number;
    }

   private:
    friend class PLBucketTable;
    Cursor(Bucket& bucket, unsigned place) : _bucket(&bucket), _place(place) {}
    Bucket* _bucket = nullptr;
    unsigned _place = 0;
  };

  std::size_t size() const { return _size; }

  /// Makes room for so many entries in all, so that entering them needs no growth.
  void reserve(std::size_t count) {
    if (count > capacity()) resize(std::max(count * 8 / (Places * 7) + 1, grownBucketCount()));
  }

  /// Has the memory where such an entry belongs brought near, so that what is done meanwhile need not be waited for.
  void prefetch(std::uint32_t hash) const {
    if (_bucketCount != 0) prefetchLineToWrite(&_buckets[home(hash)]);
  }

  /// The first entry under the hash for which `matches(address, number)` is true.
  template <class Matches>
  Cursor find(std::uint32_t hash, const Matches& matches) const {
    std::size_t index = home(hash);
    for (std::size_t step = 0; step < _bucketCount; ++step, index = following(index)) {
      Bucket& bucket = _buckets[index];
      for (unsigned place = 0; place < Places; ++place) {
        if (bucket.addresses[place] != 0 && matches(bucket.addresses[place], bucket.numbers[place])) {
          return {bucket, place};
        }
      }
      if (bucket.passed == 0) break;
    }
    return {};
  }
  /// The first entry with the number under the hash for which `matches(address)` is true.
  template <class Matches>
  Cursor findNumber(std::uint32_t hash, std::uint32_t number, const Matches& matches) const {
    std::size_t index = home(hash);
    for (std::size_t step = 0; step < _bucketCount; ++step, index = following(index)) {
      Bucket& bucket = _buckets[index];
      for (unsigned place = 0; place < Places; ++place) {
        if (bucket.numbers[place] == number && bucket.addresses[place] != 0 && matches(bucket.addresses[place])) {
          return {bucket, place};
        }
      }
      if (bucket.passed == 0) break;
    }
    return {};
  }

  void insert(std::uintptr_t address, std::uint32_t number) {
    if (_size == capacity()) resize(grownBucketCount());
    put(address, number);
    ++_size;
  }

  void erase(const Cursor& cursor) {
    Bucket* const last = cursor._bucket;
    std::size_t index = home(HashOf()(cursor.address(), cursor.number()));
    for (; &_buckets[index] != last; index = following(index)) --_buckets[index].passed;
    last->addresses[cursor._place] = 0;
    --_size;
  }

  /// Calls `visit` with a cursor to each entry, in no order that means anything. It must not insert or erase.
  template <class Visit>
  void forEach(const Visit& visit) const {
    for (std::size_t index = 0; index < _bucketCount; ++index) {
      for (unsigned place = 0; place < Places; ++place) {
        if (_buckets[index].addresses[place] != 0) visit(Cursor(_buckets[index], place));
      }
    }
  }

 private:
  // There is always room in one of eight places: searches stay short, and an insertion finds its place.
  std::size_t capacity() const { return _bucketCount * Places * 7 / 8; }
  std::size_t grownBucketCount() const { return _bucketCount + _bucketCount / 2 + 1; }
  std::size_t home(std::uint32_t hash) const {
    return static_cast<std::size_t>((std::uint64_t{hash} * _bucketCount) >> 32);
  }
  std::size_t following(std::size_t index) const { return index + 1 == _bucketCount ? 0 : index + 1; }

  void put(std::uintptr_t address, std::uint32_t number) {
    for (std::size_t index = home(HashOf()(address, number));; index = following(index)) {
      Bucket& bucket = _buckets[index];
      // Which place is free cannot be foreseen: looking at all of them is faster than guessing wrong.
      unsigned room = 0;
      for (unsigned place = 0; place < Places; ++place) {
        room |= static_cast<unsigned>(bucket.addresses[place] == 0) << place;
      }
      if (room != 0) {
        const auto place = static_cast<unsigned>(std::countr_zero(room));
        bucket.addresses[place] = address;
        bucket.numbers[place] = number;
        return;
      }
      ++bucket.passed;
    }
  }

  void resize(std::size_t bucketCount) {
    PLBucketTable larger;
    larger._buckets = std::make_unique<Bucket[]>(bucketCount);
    larger._bucketCount = bucketCount;
    forEach([&](const Cursor& entry) { larger.put(entry.address(), entry.number()); });
    _buckets = std::move(larger._buckets);
    _bucketCount = bucketCount;
  }

  std::unique_ptr<Bucket[]> _buckets;
  std::size_t _bucketCount = 0;
  std::size_t _size = 0;
};

}  // namespace pellor
