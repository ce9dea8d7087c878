#include "pellor/linux/preferences/internal/CBORValue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "pellor/linux/preferences/internal/EncodedChunk.h"

namespace pellor {
namespace {

Value sample() {
  return Array{Dictionary{},
               Dictionary{{"Name", "J\xC3\xBCrgen"},
                          {"ABRecordID", -1},
                          {"AllValues", Array{"+4930123456", "a@b.example"}},
                          {"Metadata", Dictionary{{"seen", Date{700000000.25}}, {"photo", Data(300, 7)}, {"on", true}}},
                          {"weight", 0.5}}};
}

// Byte for byte as the standard's own examples have them: the file must be readable by others.
TEST(CBORValueTest, WritesTheStandardForms) {
  const std::vector<std::pair<Value, Data>> forms = {
      {-1, {0x20}},
      {1000000, {0x1a, 0x00, 0x0f, 0x42, 0x40}},
      {std::numeric_limits<std::int64_t>::min(), {0x3b, 0x7f, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}},
      {true, {0xf5}},
      {1.1, {0xfb, 0x3f, 0xf1, 0x99, 0x99, 0x99, 0x99, 0x99, 0x9a}},
      {"\xC3\xBC", {0x62, 0xc3, 0xbc}},
      {Data{1, 2, 3, 4}, {0x44, 1, 2, 3, 4}},
      {Array{1, 2, 3}, {0x83, 1, 2, 3}},
      {Dictionary{{"b", Array{2, 3}}, {"a", 1}}, {0xa2, 0x61, 'a', 1, 0x61, 'b', 0x82, 2, 3}},
      // 2013-03-21T20:04:00.5Z, 1363896240.5 seconds after 1970
      {Date{1363896240.5 - 978307200}, {0xc1, 0xfb, 0x41, 0xd4, 0x52, 0xd9, 0xec, 0x20, 0x00, 0x00}},
  };
  for (const auto& [value, bytes] : forms) {
    EXPECT_EQ(encodeCBOR(value), bytes) << value.description();
    EXPECT_EQ(decodeCBOR(bytes), value) << value.description();
  }
}

TEST(CBORValueTest, ReadsRealsAndDatesOfAnyPrecision) {
  EXPECT_EQ(decodeCBOR(Data{0xf9, 0x3c, 0x00}), Value(1.0));
  EXPECT_EQ(decodeCBOR(Data{0xfa, 0x47, 0xc3, 0x50, 0x00}), Value(100000.0));
  EXPECT_EQ(decodeCBOR(Data{0xc1, 0x1a, 0x51, 0x4b, 0x67, 0xb0}), Value(Date{1363896240.0 - 978307200}));
  EXPECT_EQ(decodeCBOR(Data{0xc1, 0x20}), Value(Date{-1.0 - 978307200}));
}

TEST(CBORValueTest, DatesComeBackBitForBit) {
  using Limits = std::numeric_limits<double>;
  for (const double seconds : {0.0, -0.0, 0.1, 785000000.123456, -978307200.0, -978307200.1, 1e-9, 1e17, Limits::max(),
                               Limits::denorm_min(), Limits::infinity()}) {
    const auto date = decodeCBOR(encodeCBOR(Date{seconds}).value());
    ASSERT_TRUE(date && date->date()) << seconds;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(date->date()->seconds), std::bit_cast<std::uint64_t>(seconds)) << seconds;
  }
}

TEST(CBORValueTest, OnlyOneWholeItemDecodes) {
  const Data whole = encodeCBOR(sample()).value();
  ASSERT_EQ(decodeCBOR(whole), sample());
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(decodeCBOR(std::span(whole).first(length)), std::nullopt) << "truncated to " << length;
    EXPECT_EQ(EncodedChunk::decode(std::span(whole).first(length)), nullptr) << "truncated to " << length;
  }
  Data longer = whole;
  longer.push_back(0);
  EXPECT_EQ(decodeCBOR(longer), std::nullopt);
  EXPECT_EQ(EncodedChunk::decode(longer), nullptr);
}

TEST(CBORValueTest, WhatIsNotOursDoesNotDecode) {
  const std::vector<std::pair<const char*, Data>> inputs = {
      {"null", {0xf6}},
      {"break alone", {0xff}},
      {"open-ended array", {0x9f, 0x01, 0xff}},
      {"integer beyond 64 signed bits", {0x1b, 0x80, 0, 0, 0, 0, 0, 0, 0}},
      {"number as a key", {0xa1, 0x01, 0x02}},
      {"the same key twice", {0xa2, 0x61, 'a', 1, 0x61, 'a', 2}},
      {"another tag", {0xc2, 0x41, 0x01}},
      {"date of text", {0xc1, 0x61, '0'}},
      {"array of 2^63 elements", {0x9b, 0x80, 0, 0, 0, 0, 0, 0, 0}},
      {"map of 2^64 - 1 entries", {0xbb, 255, 255, 255, 255, 255, 255, 255, 255}},
  };
  for (const auto& [what, bytes] : inputs) {
    EXPECT_EQ(decodeCBOR(bytes), std::nullopt) << what;
    Data chunk = {0x81};
    chunk.insert(chunk.end(), bytes.begin(), bytes.end());
    EXPECT_EQ(EncodedChunk::decode(chunk), nullptr) << what;
  }
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

TEST(CBORValueTest, ARunGivesAndShowsTheElementsThatItsBytesHold) {
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
    }
  }
  const auto foreign = EncodedChunk::decode(Data{0x81, 0xa2, 0x61, 'b', 1, 0x61, 'a', 2});
  ASSERT_TRUE(foreign && foreign->view(0, view));
  EXPECT_TRUE(shows(view, {{"a", 2}, {"b", 1}})) << "by key, whatever the order of the bytes";
  for (const Data& none : {Data{0x80}, *encodeCBOR(Array(33, Dictionary{}))}) EXPECT_FALSE(EncodedChunk::decode(none));
}

TEST(CBORValueTest, DepthIsLimitedBothWays) {
  Value nested = 1;
  Data bytes = {0x01};
  for (std::size_t depth = 0; depth < CBORMaximumDepth; ++depth) {
    nested = Array{nested};
    bytes.insert(bytes.begin(), 0x81);
  }
  EXPECT_EQ(encodeCBOR(nested), bytes);
  EXPECT_EQ(decodeCBOR(bytes), nested);

  bytes.insert(bytes.begin(), 0x81);
  EXPECT_EQ(encodeCBOR(Array{nested}), std::nullopt);
  EXPECT_EQ(EncodedChunk::encode(ArrayChunk::make({nested})), nullptr);
  EXPECT_EQ(decodeCBOR(bytes), std::nullopt);
  EXPECT_EQ(EncodedChunk::decode(bytes), nullptr);
  EXPECT_EQ(decodeCBOR(Data(1'000'000, 0x81)), std::nullopt);
  EXPECT_EQ(decodeCBOR(Data(1'000'000, 0xc1)), std::nullopt);
}

}  // namespace
}  // namespace pellor
