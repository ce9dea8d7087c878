// What every digest service must do, written against the interface alone. Needs GoogleTest.
//
// A factory makes one:
//
//   struct MyDigests {
//     std::shared_ptr<DigestService> make();
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, DigestServiceContract, MyDigests);
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "pellor/platform/DigestService.h"

namespace pellor {

template <class Factory>
class DigestServiceContract : public testing::Test {
 protected:
  Factory _digests;
};

TYPED_TEST_SUITE_P(DigestServiceContract);

TYPED_TEST_P(DigestServiceContract, GivesThePublishedDigests) {
  const struct {
    std::string bytes;
    const char* digest;
  } cases[] = {
      {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
      {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      // Around the length at which the end of the message takes a block of its own.
      {std::string(55, 'a'), "c1c8bbdc22796e28c0e15163d20899b65621d65a"},
      {std::string(56, 'a'), "c2db330f6083854c99d4b5bfb6e8f29f201be699"},
      {std::string(63, 'a'), "03f09f5b158a7a8cdad920bddc29b81c18a551f5"},
      {std::string(64, 'a'), "0098ba824b5c16427bd7a1122a5a442a25ec644d"},
      {std::string(1'000'000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
  };
  const auto service = this->_digests.make();
  for (const auto& test : cases) {
    std::string digest;
    for (const std::uint8_t byte : service->sha1(std::vector<std::uint8_t>(test.bytes.begin(), test.bytes.end()))) {
      for (const int half : {byte >> 4, byte & 15}) digest += "0123456789abcdef"[half];
    }
    EXPECT_EQ(digest, test.digest) << test.bytes.size() << " bytes";
  }
}

REGISTER_TYPED_TEST_SUITE_P(DigestServiceContract, GivesThePublishedDigests);

}  // namespace pellor
