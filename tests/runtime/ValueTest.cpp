// Values, their stored forms, and values that threads share.
#include <gtest/gtest.h>

#include <limits>
#include <span>
#include <thread>
#include <vector>

#include "pellor/runtime/KeyedCoder.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Published.h"
#include "pellor/runtime/Value.h"

namespace pellor {
namespace {

const Data bytes{0, 1, 255};

TEST(ValueTest, ALongArrayEqualsTheArrayOfItsElements) {
  Array numbers;
  for (int number = 0; number < 70; ++number) numbers.emplace_back(number);
  const LongArray first{numbers};
  EXPECT_EQ(Value(first), Value(numbers));
  EXPECT_EQ(Value(first).description(), Value(numbers).description());

  std::vector<ArrayChunk::Element> elements;
  for (std::size_t index = 0; index < LongArray::ChunkSize; ++index) elements.emplace_back(first.chunks()[1], index);
  elements[3] = Value("another");
  auto chunks = first.chunks();
  chunks[1] = ArrayChunk::make(elements);
  const Value second = LongArray(chunks);
  EXPECT_NE(Value(first), second);
  numbers[LongArray::ChunkSize + 3] = *elements[3].value;
  EXPECT_EQ(second, Value(numbers));

  const LongArray read{numbers}, given = read.sharingChunksOf(first);
  EXPECT_EQ(given.chunks()[0], first.chunks()[0]);
  EXPECT_EQ(given.chunks()[1], read.chunks()[1]) << "it has another element";
  EXPECT_EQ(given.chunks()[2], first.chunks()[2]);
  EXPECT_EQ(LongArray(std::span(numbers).first(65)).sharingChunksOf(first).size(), 65U) << "the last chunk is shorter";
  EXPECT_EQ(given.sharingChunksOf(LongArray()), given);
}

TEST(ValueTest, ComparesContentsAndKnowsSharedOnes) {
  const Value nested(Dictionary{{"a", Array{1, "x", bytes}}, {"b", Date{2}}});
  const Value same(Dictionary{{"b", Date{2}}, {"a", Array{1, "x", bytes}}});
  const Value different(Dictionary{{"a", Array{true, "x", bytes}}, {"b", Date{2}}});
  EXPECT_EQ(nested, same);
  EXPECT_NE(nested, different);
  EXPECT_FALSE(nested.isSameObject(same));
  EXPECT_TRUE(nested.isSameObject(Value(nested)));
  EXPECT_FALSE(Value(1).isSameObject(Value(1)));
  const Value notANumber(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(notANumber, Value(notANumber)) << "a list that holds one would never equal its stored form";
}

TEST(KeyedArchiveTest, GivesBackWhatWasEncoded) {
  using enum CodedClass;
  const std::vector<Value> objects{
      "text", 1, Dictionary{{"list", Array{true, 2.5, bytes, Date{3}}}},
      Dictionary{{"$set", Array{"no set, only a name"}}},
      Array{Dictionary{{"$$set", Array{}}}, Dictionary{{"$set", "x"}, {"more", 1}}, Dictionary{{"$settle", 1}}}};
  for (const Value& object : objects) {
    KeyedArchive archive;
    archive.encodeObject("key", object);
    const KeyedArchive copy(archive.content());
    EXPECT_EQ(copy.decodeObject("key", {string, number, data, date, array, dictionary}), object)
        << object.description();
  }
}

TEST(KeyedArchiveTest, WhatIsNotAllowedOrMalformedReadsAsAbsent) {
  using enum CodedClass;
  KeyedArchive archive;
  archive.encodeObject("deep", Dictionary{{"list", Array{1, "x"}}});
  archive.encodeSet("set", {"a"});
  EXPECT_EQ(archive.decodeObject("deep", {dictionary, array, number}), std::nullopt) << "a string, deep inside";
  EXPECT_EQ(archive.decodeObject("deep", {array, number, string}), std::nullopt);
  EXPECT_EQ(archive.decodeObject("set", {dictionary, array, string}), std::nullopt) << "a set is no dictionary";
  EXPECT_EQ(archive.decodeObject("none", {string}), std::nullopt);
  EXPECT_EQ(archive.decodeInteger("deep"), 0);
  const KeyedArchive damaged(Dictionary{{"set", Dictionary{{"$set", Array{"a", 1}}}}, {"array", Array{"a"}}});
  EXPECT_EQ(damaged.decodeSet("set"), std::nullopt);
  EXPECT_EQ(damaged.decodeSet("array"), std::nullopt);
}

using Version = std::vector<int>;  // its number, several times

// Under ThreadSanitizer this also proves that what was stored happened before it is read.
TEST(PublishedTest, ReadersSeeWholeVersionsThatNeverGoBack) {
  constexpr int last = 2000;
  const auto make = [](int number) { return std::make_shared<const Version>(5, number); };
  Published<std::shared_ptr<const Version>> published(make(0));
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      for (int seen = 0; seen < last;) {
        const auto version = published.load();
        EXPECT_GE(version->front(), seen);
        seen = version->front();
        EXPECT_EQ(*version, Version(5, seen));
      }
    });
  }
  for (int number = 1; number <= last; ++number) published.store(make(number));
  for (auto& reader : readers) reader.join();
}

}  // namespace

}  // namespace pellor
