#include "pellor/runtime/Published.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace pellor {
namespace {

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
