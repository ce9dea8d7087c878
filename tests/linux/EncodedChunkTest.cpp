#include "pellor/linux/preferences/internal/EncodedChunk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "pellor/runtime/CBOR.h"
#include "tests/runtime/SampleValue.h"

namespace pellor {
namespace {

TEST(EncodedChunkTest, AChunkIsMadeExactlyOfTheBytesThatDecodeToItsElements) {
  std::mt19937 random(1);
  const Data whole = *encodeCBOR(sample());
  std::vector<Data> inputs = {whole, {0x80}, *encodeCBOR(Array(32, 1)), *encodeCBOR(Array(33, Dictionary{}))};
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const auto cut = std::span(whole).first(length);
    inputs.emplace_back(cut.begin(), cut.end());
  }
  for (int count = 0; count < 20'000; ++count) {
    Data bytes = whole;
    for (int changes = 0; changes < 3; ++changes) bytes[random() % 80] = static_cast<std::uint8_t>(random());
    inputs.push_back(std::move(bytes));
  }
  std::size_t made = 0;
  for (const Data& bytes : inputs) {
    const auto value = decodeCBOR(bytes);
    const bool isChunk = value && value->array() && !value->array()->empty() && value->array()->size() <= 32;
    const auto chunk = EncodedChunk::decode(bytes);
    ASSERT_EQ(chunk != nullptr, isChunk) << testing::PrintToString(bytes);
    for (std::size_t index = 0; chunk && index < chunk->size(); ++index) {
      // By its description: a number that is none equals nothing.
      ASSERT_EQ(chunk->at(index).description(), value->array()->at(index).description())
          << testing::PrintToString(bytes);
    }
    if (chunk) ++made;
  }
  EXPECT_GT(made, 1000U);
  EXPECT_LT(made, inputs.size() - 1000);
}

bool shows(const DictionaryView& view, const Dictionary& dictionary) {
  DictionaryView expected;
  expected.assign(dictionary);
  return std::ranges::equal(view, expected, [](const EntryView& left, const EntryView& right) {
    using Kind = Value::Kind;
    return left.key == right.key && left.kind == right.kind &&
           (left.kind != Kind::integer || left.integer == right.integer) &&
           (left.kind != Kind::string || left.text == right.text) && left.texts == right.texts &&
           left.hasOnlyTexts == right.hasOnlyTexts && left.value == right.value;
  });
}

TEST(EncodedChunkTest, AChunkGivesAndShowsTheElementsThatItsBytesHold) {
  Array elements = *sample().array();
  elements.push_back(Dictionary{{"mixed", Array{"a", 1, Array{"b"}, "c"}}, {"next", -5}});
  elements.push_back("no dictionary");
  const Data bytes = *encodeCBOR(elements);
  const auto made = EncodedChunk::encode(ArrayChunk::make({elements.begin(), elements.end()}));
  const auto copied = EncodedChunk::encode(ArrayChunk::make({{made, 0}, {made, 1}, elements[2], {made, 3}}));
  DictionaryView view;
  for (const auto& chunk : {EncodedChunk::decode(bytes), made, copied}) {
    ASSERT_EQ(chunk->size(), elements.size());
    EXPECT_TRUE(std::ranges::equal(chunk->bytes(), bytes));
    for (std::size_t index = 0; index < elements.size(); ++index) {
      EXPECT_EQ(chunk->at(index), elements[index]);
      const Dictionary* dictionary = elements[index].dictionary();
      EXPECT_EQ(chunk->view(index, view), dictionary != nullptr);
      EXPECT_TRUE(shows(view, dictionary ? *dictionary : Dictionary{})) << index;
      for (const EntryView& entry : view) EXPECT_EQ(entry.copy(), *valueForKey(*dictionary, entry.key)) << entry.key;
    }
  }
  const auto foreign = EncodedChunk::decode(Data{0x81, 0xa2, 0x61, 'b', 1, 0x61, 'a', 2});
  ASSERT_TRUE(foreign && foreign->view(0, view));
  EXPECT_TRUE(shows(view, {{"a", 2}, {"b", 1}})) << "by key, whatever the order of the bytes";
}

TEST(EncodedChunkTest, DepthIsLimited) {
  Value nested = 1;
  for (std::size_t depth = 0; depth < CBORMaximumDepth - 1; ++depth) nested = Array{nested};
  EXPECT_NE(EncodedChunk::encode(ArrayChunk::make({nested})), nullptr);
  EXPECT_NE(EncodedChunk::decode(*encodeCBOR(Array{nested})), nullptr);

  const Value deeper = Array{nested};
  EXPECT_EQ(EncodedChunk::encode(ArrayChunk::make({deeper})), nullptr);
  Data bytes = *encodeCBOR(deeper);
  bytes.insert(bytes.begin(), 0x81);
  EXPECT_EQ(EncodedChunk::decode(bytes), nullptr);
}

}  // namespace
}  // namespace pellor
