// What every reachability service must do, written against the interface alone. Needs GoogleTest.
//
// Conversions: a factory makes services that remember nothing of each other.
//
//   struct MyConversions {
//     static std::vector<std::string> regions();
//     std::shared_ptr<ReachabilityService> make(const std::string& region);
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, ReachabilityConversionsContract, MyConversions);
//
// Queries: a factory has a service, by which national numbers are German ones, that knows +49 30 1234567 and
// ada@example.org as reachable, and nobody else.
//
//   struct MyQueries {
//     Process& process();
//     ReachabilityService& service();
//     template <class Condition> bool runUntil(Condition condition);  // runs the process; false after a long time
//   };
//   INSTANTIATE_TYPED_TEST_SUITE_P(Mine, ReachabilityQueriesContract, MyQueries);
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "pellor/platform/ReachabilityService.h"
#include "pellor/runtime/Process.h"

namespace pellor {

/// The form under which a destination is compared and stored.
inline std::string canonicalForm(ReachabilityService& service, const std::string& text) {
  const std::string raw = service.rawAddressForDestination(text);
  const auto identifier = service.identifierForPhoneNumberWithOptions(raw, std::nullopt, 1);
  const std::string form = service.rawAddressForDestination(identifier.value_or("none"));
  EXPECT_EQ(service.comparableNumber(raw), form) << text;
  return form;
}

template <class Factory>
class ReachabilityConversionsContract : public testing::Test {
 protected:
  /// What stands between the bars.
  static std::vector<std::string> partsOf(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, '|');) parts.push_back(part);
    return parts;
  }

  Factory _services;
};

TYPED_TEST_SUITE_P(ReachabilityConversionsContract);

TYPED_TEST_P(ReachabilityConversionsContract, TextThatIsNoNumberIsItsOwnForm) {
  const auto service = this->_services.make("DE");
  for (const char* text : {"", " ", "911", "12", "no number", "+", "\xFF 5", "+999 1"}) {
    EXPECT_EQ(canonicalForm(*service, text), text);
    EXPECT_EQ(service->identifierForPhoneNumber(text), std::string("tel:") + text);
  }
}

TYPED_TEST_P(ReachabilityConversionsContract, RawAddressesHoldNoScheme) {
  const auto service = this->_services.make("DE");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"mailto:Ann@Example.org", "Ann@Example.org"},
      {"tel:", ""},
      {"a mailto:b tel:c", "a b c"},
      {"tmailto:el:5", "5"},
      {"tel:mtel:ailto:tel:x", "x"},
  };
  for (const auto& [destination, raw] : cases) EXPECT_EQ(service->rawAddressForDestination(destination), raw);
  EXPECT_EQ(service->identifierForEmailAddress("ann@example.org"), "mailto:ann@example.org");
  EXPECT_EQ(service->identifierForEmailAddress("mailto:a@b"), "mailto:a@b");
}

TYPED_TEST_P(ReachabilityConversionsContract, CanonicalFormsStayAsTheyAre) {
  auto texts = this->partsOf(
      "911|1-800-FLOWERS|tel:tel:5|x tel:5|mailto:a@b|+7 495 1234567|00 49 30 1234567||   |030 1234567 x 5|"
      "+1 202 555 0123;ext=5;ext=6|+49301234567;isub=12;phone-context=+49|1234567;phone-context=+49|+800 1234 5678|"
      "+49 0 30 1234567|0049(0)301234567|*31#0301234567|+5491123456789|+52 1 55 1234 5678|+39 06 12345678|"
      "5 dogs and 12345678 cats");
  // And whatever else can be put together of the pieces that mean something in a number.
  const auto pieces = this->partsOf(
      "0|1|2|5|7|9|49|+|+1|(|)|-| |00|;ext=| x|tel:|#|*|,|.|A|mailto:|800|\xD9\xA3|\xEF\xBC\x95|;phone-context=|555|"
      "0123");
  std::mt19937 random(1);
  for (int count = 0; count < 3000; ++count) {
    std::string text;
    for (auto length = random() % 14; length > 0; --length) text += pieces[random() % pieces.size()];
    texts.push_back(text);
  }
  for (const std::string& region : TypeParam::regions()) {
    const auto service = this->_services.make(region), other = this->_services.make(region);
    for (const std::string& text : texts) {
      const std::string form = canonicalForm(*service, text);
      EXPECT_EQ(canonicalForm(*other, form), form) << '"' << text << "\" in " << region;
      EXPECT_EQ(canonicalForm(*other, "tel:" + form), form) << '"' << text << "\" in " << region;
    }
  }
}

REGISTER_TYPED_TEST_SUITE_P(ReachabilityConversionsContract, TextThatIsNoNumberIsItsOwnForm, RawAddressesHoldNoScheme,
                            CanonicalFormsStayAsTheyAre);

/// Keeps what it is told.
struct RecordingClient : ReachabilityClient {
  struct Start {
    std::set<std::string> destinations;
    bool hasPriority = false;
    bool operator==(const Start&) const = default;
  };

  void queryDidStart(const std::set<std::string>& destinations, bool hasPriority) override {
    EXPECT_TRUE(Process::current().mainQueue().isCurrent());
    starts.push_back({destinations, hasPriority});
  }
  void queryDidAnswer(const DestinationStatuses& part) override {
    EXPECT_TRUE(Process::current().mainQueue().isCurrent());
    EXPECT_FALSE(isInsideCall);
    EXPECT_FALSE(starts.empty()) << "answered before it was started";
    ++parts;
    for (const auto& [destination, status] : part) statuses.insert_or_assign(destination, status);
  }

  std::vector<Start> starts;
  int parts = 0;
  DestinationStatuses statuses;
  bool isInsideCall = false;
};

/// Asks, and checks that nothing is answered inside the call. Whether the service takes queries.
inline bool ask(Process& process, ReachabilityService& service, const std::set<std::string>& destinations,
                bool hasPriority, const std::shared_ptr<RecordingClient>& client) {
  const Process::Scope scope(process);
  client->isInsideCall = true;
  const bool isTaken = service.queryStatusForDestinations(destinations, "Notes", hasPriority, client);
  client->isInsideCall = false;
  return isTaken;
}

template <class Factory>
class ReachabilityQueriesContract : public testing::Test {
 protected:
  bool ask(const std::set<std::string>& destinations, bool hasPriority,
           const std::shared_ptr<RecordingClient>& client) {
    return pellor::ask(_queries.process(), _queries.service(), destinations, hasPriority, client);
  }
  bool runUntilAnswered(const RecordingClient& client, std::size_t count) {
    return _queries.runUntil([&] { return client.parts > 0 && client.statuses.size() == count; });
  }

  Factory _queries;
};

TYPED_TEST_SUITE_P(ReachabilityQueriesContract);

TYPED_TEST_P(ReachabilityQueriesContract, EveryDestinationIsAnsweredUnderTheNameThatWasAskedForAfterTheStart) {
  using enum DestinationStatus;
  const DestinationStatuses expected = {
      {"030 1234567", valid},       {"tel:+49 30 1234567", valid},     {"+49-30-1234567", valid},
      {"ada@example.org", valid},   {"mailto:Ada@Example.org", valid}, {"+49301234568", invalid},
      {"bob@example.org", invalid}, {"tel:00493012345678", invalid},   {"*)(mail=*@example.org", invalid},
      {"ad*@example.org", invalid}};
  std::set<std::string> destinations;
  for (const auto& [destination, status] : expected) destinations.insert(destination);
  for (const bool hasPriority : {false, true}) {
    const auto client = std::make_shared<RecordingClient>();
    ASSERT_TRUE(this->ask(destinations, hasPriority, client));
    EXPECT_TRUE(this->runUntilAnswered(*client, expected.size()));
    EXPECT_EQ(client->statuses, expected);
    EXPECT_EQ(client->starts, (std::vector<RecordingClient::Start>{{destinations, hasPriority}}));
  }
}

TYPED_TEST_P(ReachabilityQueriesContract, OneWhoIsGoneIsNotToldAndOthersStillAre) {
  auto gone = std::make_shared<RecordingClient>();
  const auto first = std::make_shared<RecordingClient>(), nobody = std::make_shared<RecordingClient>();
  EXPECT_TRUE(this->ask({"ada@example.org"}, true, gone));
  EXPECT_EQ(gone.use_count(), 1) << "clients are held weakly";
  gone.reset();
  EXPECT_TRUE(this->ask({}, false, nobody));
  EXPECT_TRUE(this->ask({"ada@example.org", "bob@example.org"}, false, first));
  EXPECT_TRUE(this->runUntilAnswered(*first, 2));
  EXPECT_TRUE(this->runUntilAnswered(*nobody, 0)) << "a query about nobody ends as well";
}

TYPED_TEST_P(ReachabilityQueriesContract, WhatWasAnsweredIsTheLastKnownStatusInEverySpellingOrNothingIs) {
  ReachabilityService& service = this->_queries.service();
  const auto lastOf = [&](const std::string& destination) {
    const Process::Scope scope(this->_queries.process());
    return service.lastKnownStatus(destination);
  };
  EXPECT_EQ(lastOf("ada@example.org"), std::nullopt) << "nobody has asked yet";
  const auto client = std::make_shared<RecordingClient>();
  ASSERT_TRUE(this->ask({"030 1234567", "bob@example.org"}, true, client));
  EXPECT_TRUE(this->_queries.runUntil([&] { return client->statuses.size() == 2; }));
  const auto known = lastOf("tel:+49 30 1234567"), other = lastOf("mailto:bob@example.org");
  // A service may keep no answers, but not some of them.
  EXPECT_EQ(known.has_value(), other.has_value());
  EXPECT_EQ(lastOf("ada@example.org"), std::nullopt) << "of whom nobody asked";
  EXPECT_EQ(lastOf(""), std::nullopt);
  if (!known || !other) return;
  EXPECT_EQ(known->status, DestinationStatus::valid);
  EXPECT_EQ(other->status, DestinationStatus::invalid);
  EXPECT_LE(known->lifetime.value_or(0), 366 * 86400.0);
  const auto again = std::make_shared<RecordingClient>();
  ASSERT_TRUE(this->ask({"030 1234567"}, true, again));
  EXPECT_TRUE(this->_queries.runUntil([&] { return again->statuses.size() == 1; }));
  EXPECT_GE(lastOf("+49301234567").value_or(StatusAnswer{}).time, known->time) << "the newest one";
}

REGISTER_TYPED_TEST_SUITE_P(ReachabilityQueriesContract,
                            EveryDestinationIsAnsweredUnderTheNameThatWasAskedForAfterTheStart,
                            OneWhoIsGoneIsNotToldAndOthersStillAre,
                            WhatWasAnsweredIsTheLastKnownStatusInEverySpellingOrNothingIs);

/// Of a service that takes no queries.
inline void expectNoQueries(Process& process, ReachabilityService& service) {
  const auto client = std::make_shared<RecordingClient>();
  EXPECT_FALSE(ask(process, service, {"ada@example.org"}, true, client));
  EXPECT_FALSE(ask(process, service, {}, false, client));
  EXPECT_TRUE(process.settle(60));
  EXPECT_TRUE(client->starts.empty());
  EXPECT_EQ(client->parts, 0);
  const Process::Scope scope(process);
  EXPECT_EQ(service.lastKnownStatus("ada@example.org"), std::nullopt);
}

}  // namespace pellor
