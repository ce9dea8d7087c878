// Keyed coding: how an object archives itself, whatever the archive is made of.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "pellor/runtime/Value.h"

namespace pellor {

/// The classes of coded objects. A decoder is told which ones it may make; anything else in the archive reads as
/// absent.
enum class CodedClass { string, number, data, date, array, dictionary, set };

/// Receives an object's fields by key. A field that is absent is not encoded.
class KeyedEncoder {
 public:
  virtual ~KeyedEncoder() = default;
  virtual void encodeInteger(std::string_view key, std::int64_t value) = 0;
  virtual void encodeObject(std::string_view key, const Value& value) = 0;
  virtual void encodeSet(std::string_view key, const std::set<std::string>& strings) = 0;
};

/// Gives fields back by key.
class KeyedDecoder {
 public:
  virtual ~KeyedDecoder() = default;
  /// 0 when the key is absent or no integer.
  virtual std::int64_t decodeInteger(std::string_view key) const = 0;
  /// Absent when there is none or when it holds, at any depth, a class that is not among `allowed`.
  virtual std::optional<Value> decodeObject(std::string_view key, std::initializer_list<CodedClass> allowed) const = 0;
  /// Absent when there is none or when it is no set of strings.
  virtual std::optional<std::set<std::string>> decodeSet(std::string_view key) const = 0;
};

/// An archive as a property list, which any serialiser of values can carry. Sets are kept as dictionaries of one entry,
/// "$set" to an array. Not shared between threads.
class KeyedArchive : public KeyedEncoder, public KeyedDecoder {
 public:
  KeyedArchive() = default;
  explicit KeyedArchive(Dictionary content) : _content(std::move(content)) {}

  void encodeInteger(std::string_view key, std::int64_t value) override;
  void encodeObject(std::string_view key, const Value& value) override;
  void encodeSet(std::string_view key, const std::set<std::string>& strings) override;
  std::int64_t decodeInteger(std::string_view key) const override;
  std::optional<Value> decodeObject(std::string_view key, std::initializer_list<CodedClass> allowed) const override;
  std::optional<std::set<std::string>> decodeSet(std::string_view key) const override;

  const Dictionary& content() const { return _content; }

 private:
  Dictionary _content;
};

}  // namespace pellor
