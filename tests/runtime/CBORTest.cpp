#include "pellor/runtime/CBOR.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tests/runtime/SampleValue.h"

namespace pellor {
namespace {

// Byte for byte as the standard's own examples have them: the file must be readable by others.
TEST(CBORTest, WritesTheStandardForms) {
  const std::vector<std::pair<Value, Data>> forms = {
      {23, {0x17}},
      {24, {0x18, 0x18}},
      {255, {0x18, 0xff}},
      {256, {0x19, 0x01, 0x00}},
      {65536, {0x1a, 0x00, 0x01, 0x00, 0x00}},
      {4294967296, {0x1b, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00}},
      {-1, {0x20}},
      {-25, {0x38, 0x18}},
      {1000000, {0x1a, 0x00, 0x0f, 0x42, 0x40}},
      {std::numeric_limits<std::int64_t>::min(), {0x3b, 0x7f, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}},
      {true, {0xf5}},
      {false, {0xf4}},
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

TEST(CBORTest, ReadsRealsAndDatesOfAnyPrecision) {
  const std::vector<std::pair<Data, double>> halves = {
      {{0xf9, 0x3c, 0x00}, 1.0},     {{0xf9, 0xc4, 0x00}, -4.0},
      {{0xf9, 0x7b, 0xff}, 65504},   {{0xf9, 0x04, 0x00}, 0.00006103515625},
      {{0xf9, 0x00, 0x01}, 0x1p-24}, {{0xf9, 0xfc, 0x00}, -std::numeric_limits<double>::infinity()}};
  for (const auto& [bytes, real] : halves) EXPECT_EQ(decodeCBOR(bytes), Value(real)) << real;
  EXPECT_TRUE(std::isnan(*decodeCBOR(Data{0xf9, 0x7e, 0x00})->real()));
  EXPECT_EQ(decodeCBOR(Data{0xfa, 0x47, 0xc3, 0x50, 0x00}), Value(100000.0));
  EXPECT_EQ(decodeCBOR(Data{0xc1, 0x1a, 0x51, 0x4b, 0x67, 0xb0}), Value(Date{1363896240.0 - 978307200}));
  EXPECT_EQ(decodeCBOR(Data{0xc1, 0x20}), Value(Date{-1.0 - 978307200}));
}

TEST(CBORTest, DatesComeBackBitForBit) {
  using Limits = std::numeric_limits<double>;
  for (const double seconds : {0.0, -0.0, 0.1, 785000000.123456, -978307200.0, -978307200.1, 1e-9, 1e17, Limits::max(),
                               Limits::denorm_min(), Limits::infinity()}) {
    const auto date = decodeCBOR(encodeCBOR(Date{seconds}).value());
    ASSERT_TRUE(date && date->date()) << seconds;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(date->date()->seconds), std::bit_cast<std::uint64_t>(seconds)) << seconds;
  }
}

TEST(CBORTest, OnlyOneWholeItemDecodes) {
  const Data whole = encodeCBOR(sample()).value();
  ASSERT_EQ(decodeCBOR(whole), sample());
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(decodeCBOR(std::span(whole).first(length)), std::nullopt) << "truncated to " << length;
  }
  Data longer = whole;
  longer.push_back(0);
  EXPECT_EQ(decodeCBOR(longer), std::nullopt);
}

TEST(CBORTest, WhatIsNotOursDoesNotDecode) {
  const std::vector<std::pair<const char*, Data>> inputs = {
      {"null", {0xf6}},
      {"break alone", {0xff}},
      {"true in two bytes", {0xf8, 0x15}},
      {"a reserved length", {0x1c}},
      {"text of 2^64 - 1 bytes", {0x7b, 255, 255, 255, 255, 255, 255, 255, 255, 'a'}},
      {"open-ended array", {0x9f, 0x01, 0xff}},
      {"integer beyond 64 signed bits", {0x1b, 0x80, 0, 0, 0, 0, 0, 0, 0}},
      {"number as a key", {0xa1, 0x01, 0x02}},
      {"the same key twice", {0xa2, 0x61, 'a', 1, 0x61, 'a', 2}},
      {"another tag", {0xc2, 0x41, 0x01}},
      {"date of text", {0xc1, 0x61, '0'}},
      {"array of 2^63 elements", {0x9b, 0x80, 0, 0, 0, 0, 0, 0, 0}},
      {"map of 2^64 - 1 entries", {0xbb, 255, 255, 255, 255, 255, 255, 255, 255}},
  };
  for (const auto& [what, bytes] : inputs) EXPECT_EQ(decodeCBOR(bytes), std::nullopt) << what;
}

TEST(CBORTest, DepthIsLimitedBothWays) {
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
  EXPECT_EQ(decodeCBOR(bytes), std::nullopt);
  EXPECT_EQ(decodeCBOR(Data(1'000'000, 0x81)), std::nullopt);
  EXPECT_EQ(decodeCBOR(Data(1'000'000, 0xc1)), std::nullopt);
}

}  // namespace
}  // namespace pellor
