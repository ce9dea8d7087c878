// What every preferences store must do, written against the interface alone. Needs GoogleTest.
//
// This suite is about values that are set and synchronised; the suite of versioned reads and writes, for these
// factories too, is in PreferencesVersionsContract.h.
//
// A factory makes stores that share one content, and does to it what the world does:
//
//   struct MyStores {
//     std::shared_ptr<PreferencesStore> open();                  // the store of one more process
//     void damage(std::string_view key, std::string_view domain);  // the stored bytes no longer decode
//     void makeUnreadable();
//     void makeReadable();
//     void failWrites(bool fail);                                // stays readable
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, PreferencesStoreContract, MyStores);
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/LongArray.h"

namespace pellor {

inline constexpr const char* ContractDomain = "org.tapnote.Contract";

inline Value person(std::int64_t number) {
  return Dictionary{{"ABRecordID", number}, {"AllValues", Array{"+4930123456"}}};
}

inline Array persons(std::size_t count) {
  Array list;
  for (std::size_t number = 0; number < count; ++number) list.push_back(person(static_cast<std::int64_t>(number)));
  return list;
}

/// A next version of the list, made by a writer that shares the chunks which stay.
inline Value withElement(const LongArray& list, std::size_t index, const Value& value) {
  auto chunks = list.chunks();
  auto& chunk = chunks[index / LongArray::ChunkSize];
  std::vector<ArrayChunk::Element> elements;
  for (std::size_t place = 0; place < chunk->size(); ++place) elements.emplace_back(chunk, place);
  elements[index % LongArray::ChunkSize] = value;
  chunk = ArrayChunk::make(std::move(elements));
  return LongArray(std::move(chunks));
}

template <class Factory>
class PreferencesStoreContract : public testing::Test {
 protected:
  static std::optional<Value> valueIn(PreferencesStore& store, std::string_view key) {
    const auto answer = store.copyValue(key, ContractDomain);
    EXPECT_TRUE(answer.isReadable()) << key;
    return answer.value();
  }

  Factory _stores;
};

TYPED_TEST_SUITE_P(PreferencesStoreContract);

TYPED_TEST_P(PreferencesStoreContract, ValuesKeepTheirKindAndContent) {
  const Dictionary values = {
      {"true", true},
      {"false", false},
      {"zero", 0},
      {"least", std::numeric_limits<std::int64_t>::min()},
      {"greatest", std::numeric_limits<std::int64_t>::max()},
      {"real", 1.0},
      {"text", "J\xC3\xBCrgen"},
      {"no text", ""},
      {"text with a zero", std::string("a\0b", 3)},
      {"data", Data{0, 255, 1}},
      {"no data", Data{}},
      {"date", Date{700000000.5}},
      {"date of a microsecond", Date{785000000.123456}},
      {"no elements", Array{}},
      {"no entries", Dictionary{}},
      {"list", Array{Dictionary{}, Dictionary{{"Name", "Ada"}, {"AllValues", Array{"1", 2, 3.0, true}}}}},
  };
  const auto writer = this->_stores.open();
  for (const auto& [key, value] : values) writer->setValue(key, value, ContractDomain);
  ASSERT_TRUE(writer->synchronize(ContractDomain));

  for (const auto& store : {writer, this->_stores.open()}) {
    for (const auto& [key, value] : values) {
      const auto stored = this->valueIn(*store, key);
      EXPECT_EQ(stored, std::optional(value)) << key;
      EXPECT_EQ(store->integerValue(key, ContractDomain).value(), value.integer()) << key;
      EXPECT_EQ(store->booleanValue(key, ContractDomain).value(), value.boolean()) << key;
    }
    EXPECT_EQ(this->valueIn(*store, "never set"), std::nullopt);
  }
}

TYPED_TEST_P(PreferencesStoreContract, OthersSeeAChangeOnlyAfterBothSynchronizedItsDomain) {
  const auto writer = this->_stores.open(), reader = this->_stores.open();
  EXPECT_EQ(this->valueIn(*reader, "key"), std::nullopt);

  writer->setValue("key", 1, ContractDomain);
  writer->setValue("key", 2, ContractDomain);
  writer->setValue("key", 3, "another domain");
  EXPECT_EQ(this->valueIn(*writer, "key"), Value(2));
  EXPECT_TRUE(reader->synchronize(ContractDomain));
  EXPECT_EQ(this->valueIn(*reader, "key"), std::nullopt);

  ASSERT_TRUE(writer->synchronize(ContractDomain));
  EXPECT_EQ(this->valueIn(*reader, "key"), std::nullopt);
  ASSERT_TRUE(reader->synchronize(ContractDomain));
  EXPECT_EQ(this->valueIn(*reader, "key"), Value(2));
  EXPECT_EQ(this->_stores.open()->copyValue("key", "another domain").value(), std::nullopt);
  EXPECT_EQ(writer->copyValue("key", "another domain").value(), Value(3));

  reader->setValue("key", std::nullopt, ContractDomain);
  EXPECT_EQ(this->valueIn(*reader, "key"), std::nullopt);
  ASSERT_TRUE(reader->synchronize(ContractDomain));
  ASSERT_TRUE(writer->synchronize(ContractDomain));
  EXPECT_EQ(this->valueIn(*writer, "key"), std::nullopt);
}

TYPED_TEST_P(PreferencesStoreContract, AFailedWriteWritesNothingAndIsDropped) {
  const auto writer = this->_stores.open(), other = this->_stores.open();
  writer->setValue("kept", "old", ContractDomain);
  ASSERT_TRUE(writer->synchronize(ContractDomain));

  this->_stores.failWrites(true);
  writer->setValue("kept", "dropped", ContractDomain);
  writer->setValue("further", 1, ContractDomain);
  EXPECT_FALSE(writer->synchronize(ContractDomain));
  EXPECT_EQ(this->valueIn(*writer, "kept"), Value("old"));
  EXPECT_EQ(this->valueIn(*writer, "further"), std::nullopt);
  EXPECT_TRUE(writer->synchronize(ContractDomain)) << "nothing waits any more";
  EXPECT_TRUE(other->synchronize(ContractDomain)) << "nothing to write";
  EXPECT_EQ(this->valueIn(*other, "kept"), Value("old"));
  writer->setValue("second", 2, ContractDomain);
  EXPECT_EQ(this->valueIn(*writer, "second"), Value(2)) << "set after the failure";

  this->_stores.failWrites(false);
  other->setValue("kept", "newer", ContractDomain);
  ASSERT_TRUE(other->synchronize(ContractDomain));
  EXPECT_TRUE(writer->synchronize(ContractDomain));
  const auto late = this->_stores.open();
  EXPECT_EQ(this->valueIn(*late, "kept"), Value("newer"));
  EXPECT_EQ(this->valueIn(*late, "further"), std::nullopt);
  EXPECT_EQ(this->valueIn(*late, "second"), Value(2));
}

TYPED_TEST_P(PreferencesStoreContract, UnreadableIsNotNone) {
  const auto store = this->_stores.open();
  store->setValue("key", 1, ContractDomain);
  ASSERT_TRUE(store->synchronize(ContractDomain));

  this->_stores.makeUnreadable();
  const auto late = this->_stores.open();
  EXPECT_FALSE(late->copyValue("key", ContractDomain).isReadable());
  EXPECT_FALSE(store->synchronize(ContractDomain));
  EXPECT_FALSE(store->copyValue("key", ContractDomain).isReadable());
  EXPECT_FALSE(store->copyValue("never set", ContractDomain).isReadable());
  EXPECT_FALSE(store->integerValue("key", ContractDomain).isReadable());
  EXPECT_FALSE(store->booleanValue("key", ContractDomain).isReadable());
  EXPECT_FALSE(store->putAside("key", ContractDomain).kept);
  store->setValue("dropped", 2, ContractDomain);
  EXPECT_FALSE(store->synchronize(ContractDomain));

  this->_stores.makeReadable();
  EXPECT_EQ(this->valueIn(*late, "key"), Value(1));
  EXPECT_EQ(this->valueIn(*store, "key"), Value(1));
  EXPECT_TRUE(store->synchronize(ContractDomain));
  EXPECT_EQ(this->valueIn(*store, "dropped"), std::nullopt);
  EXPECT_EQ(this->valueIn(*this->_stores.open(), "dropped"), std::nullopt);
}

TYPED_TEST_P(PreferencesStoreContract, ADamagedValueIsGivenAsItIsAndPutAside) {
  const Value good = Array{Dictionary{{"Name", "Ada"}}};
  const auto store = this->_stores.open();
  store->setValue("list", good, ContractDomain);
  ASSERT_TRUE(store->synchronize(ContractDomain));
  this->_stores.damage("list", ContractDomain);

  ASSERT_TRUE(store->synchronize(ContractDomain));
  const auto damaged = this->valueIn(*store, "list");
  ASSERT_TRUE(damaged && damaged->data());
  const PutAside aside = store->putAside("list", ContractDomain);
  EXPECT_TRUE(aside.kept);
  EXPECT_EQ(aside.lastGood, std::optional(good));
  ASSERT_TRUE(store->synchronize(ContractDomain));
  EXPECT_EQ(this->valueIn(*store, "list"), damaged) << "stays until it is written over";

  store->setValue("list", Array{}, ContractDomain);
  EXPECT_TRUE(store->synchronize(ContractDomain));
  EXPECT_EQ(this->valueIn(*this->_stores.open(), "list"), Value(Array{}));
  EXPECT_EQ(store->putAside("list", ContractDomain).lastGood, Value(Array{}));
  store->setValue("list", std::nullopt, ContractDomain);
  EXPECT_TRUE(store->synchronize(ContractDomain));
  EXPECT_EQ(store->putAside("list", ContractDomain).lastGood, std::nullopt);

  const PutAside nothing = store->putAside("never set", ContractDomain);
  EXPECT_FALSE(nothing.kept);
  EXPECT_EQ(nothing.lastGood, std::nullopt);
}

REGISTER_TYPED_TEST_SUITE_P(PreferencesStoreContract, ValuesKeepTheirKindAndContent,
                            OthersSeeAChangeOnlyAfterBothSynchronizedItsDomain, AFailedWriteWritesNothingAndIsDropped,
                            UnreadableIsNotNone, ADamagedValueIsGivenAsItIsAndPutAside);

}  // namespace pellor
