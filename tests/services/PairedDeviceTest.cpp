// Two paired devices and a real broker between them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "pellor/linux/mosquitto/PushState.h"
#include "pellor/linux/mosquitto/SealingKeys.h"
#include "pellor/linux/mosquitto/SyncMessages.h"
#include "pellor/testing/contract/PreferencesSyncServiceContract.h"
#include "tests/services/PairedDevices.h"

namespace pellor {
namespace {

using testing::HasSubstr;

class BrokeredDevice {
 public:
  static constexpr bool CanPair = true;
  BrokeredDevice() {
    _devices.keys.clear();
    _devices.startSending();
  }
  PreferencesSyncService& service() { return *_devices.sender; }
  void store(const std::string& key, std::optional<Value> value) {
    _devices.laptop.store(key, std::move(value), ContractSyncDomain);
  }
  void completeInitialSync() {
    _devices.sender.reset();
    _devices.keys = {{ContractSyncDomain, {"list"}}};
    _devices.pair();
    _devices.startSending();
    _devices.startReceiving();
    EXPECT_TRUE(_devices.runUntilInStep());
  }
  std::optional<Value> arrived(const std::string& key) {
    EXPECT_TRUE(_devices.runUntilInStep());
    return _devices.phone.stored(key, ContractSyncDomain);
  }

 private:
  PairedDevices _devices;
};

TEST_F(PairedDeviceTest, FirstPairingBringsEverythingAlsoWhatIsEditedMeanwhile) {
  _devices.laptop.store("list", friends(3));
  _devices.startSending();
  _devices.save({{"list", friends(4)}});
  EXPECT_EQ(_devices.sender->status().peer, std::nullopt);
  _devices.pair();
  EXPECT_TRUE(_devices.runUntil(
      [&] { return _devices.sender->status().generation == 1 && _devices.sender->status().due.empty(); }));
  EXPECT_FALSE(_devices.sender->hasCompletedInitialSync()) << "nobody has received it";
  // As the library does: it pushes nothing before.
  _devices.laptop.store("list", friends(5));
  _devices.laptop.store("titles", Array{"Family"});

  _devices.startReceiving();
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_TRUE(_devices.sender->hasCompletedInitialSync());
  EXPECT_EQ(_devices.phone.stored("list"), friends(5));
  EXPECT_EQ(_devices.phone.stored("titles"), Value(Array{"Family"}));
  EXPECT_TRUE(_devices.runUntil([&] { return _devices.posts == 2; }));
  EXPECT_EQ(_devices.sender->status().generation, 2u);
  EXPECT_EQ(_devices.told,
            (std::vector<std::string>{"receiving from laptop", "stored generation 1", "stored generation 2"}));
  EXPECT_EQ(modeOf(_devices.laptop.pairing.folder()), 0700u);
  for (const auto& file : std::filesystem::directory_iterator(_devices.laptop.pairing.folder())) {
    EXPECT_EQ(modeOf(file.path()), 0600u) << file.path();
  }
}

TEST_F(PairedDeviceTest, OfAnAbsenceOnlyTheLatestArrives) {
  completeInitialSync();
  _devices.broker.kill();
  ASSERT_TRUE(_devices.runUntil([&] { return _devices.log->count("is away") == 2; }));
  for (int count = 1; count <= 3; ++count) _devices.save({{"list", friends(count)}});
  _devices.save({{"titles", Array{"Work"}}});
  EXPECT_EQ(_devices.sender->status().due.size(), 2u);
  // The process ends without having sent it; another one does.
  _devices.sender.reset();
  _devices.startSending();
  _devices.broker.start();
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(_devices.phone.stored("list"), friends(3));
  EXPECT_EQ(_devices.phone.stored("titles"), Value(Array{"Work"}));
  EXPECT_TRUE(_devices.runUntil([&] { return _devices.posts == 1; }));

  // The receiver's absence is longer than any queue of the broker's.
  _devices.receiver.reset();
  for (int round = 0; round < 8; ++round) {
    _devices.save({{"list", friends(10 + round)}});
    ASSERT_TRUE(_devices.runUntil([&] { return _devices.sender->status().due.empty(); }));
  }
  // Nor does it matter that the broker lost what it had taken.
  _devices.broker.kill();
  _devices.broker.forget();
  _devices.broker.start();
  _devices.startReceiving();
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(_devices.phone.stored("list"), friends(17));
  EXPECT_TRUE(_devices.runUntil([&] { return _devices.posts == 2; }));
}

TEST_F(PairedDeviceTest, StrangersGetNothingAndChangeNothing) {
  completeInitialSync();
  const Authority elsewhere;
  const Device stranger(elsewhere, "laptop"), tablet(_devices.broker.authority(), "tablet");
  elsewhere.issue(stranger.pairing, "laptop", _devices.broker.authority());
  {
    const RawClient client(_devices.process, _devices.broker, stranger, {{"pellor/phone/laptop/manifest", Data{1}}});
    EXPECT_TRUE(_devices.runUntil([&] { return client.isAway(); })) << "of an authority that the broker does not know";
  }
  // A device that may use the broker but is not paired: for the broker it is another one, whatever it says.
  const auto before = retainedFor(_devices.phone);
  EXPECT_EQ(before.size(), 3u);
  tablet.pairing.pair(_devices.phone.pairing.invitation());
  const auto keys = tablet.pairing.sealingKeys();
  const Data manifest = *encode(ManifestMessage());
  publishAs(tablet, {{"pellor/phone/laptop/manifest", keys->seal("pellor/phone/laptop/manifest", 99, manifest)},
                     {"pellor/phone/tablet/manifest", keys->seal("pellor/phone/tablet/manifest", 99, manifest)}});
  EXPECT_TRUE(retainedFor(tablet).empty());
  EXPECT_EQ(retainedFor(_devices.phone).size(), before.size() + 1);

  // Whoever owns the broker can do what the laptop can: play old messages again, and change them.
  auto old = retainedFor(_devices.phone);
  _devices.save({{"list", friends(7)}});
  ASSERT_TRUE(_devices.runUntilInStep());
  _devices.sender.reset();
  auto current = retainedFor(_devices.phone);
  publishAs(_devices.laptop, old);
  auto tampered = retainedFor(_devices.phone);
  for (auto& [topic, payload] : tampered) payload.back() ^= 1;
  publishAs(_devices.laptop, tampered);
  for (auto& [topic, payload] : tampered) payload.resize(payload.size() / 2);
  publishAs(_devices.laptop, tampered);
  const auto ignored = [&] { return _devices.log->count("was ignored"); };
  EXPECT_TRUE(_devices.runUntil([&] { return ignored() >= 2 * 3 + 1; }));
  EXPECT_EQ(_devices.phone.stored("list"), friends(7));
  EXPECT_TRUE(_devices.runUntil([&] { return _devices.posts == 1; }));

  // A receiver that lost what it knew does not take an old value for that of a later manifest; it gets all again.
  _devices.receiver.reset();
  IncomingFile(_devices.phone.pairing.folder()).forget();
  const auto isManifest = [](const auto& message) { return message.first == "pellor/phone/laptop/manifest"; };
  std::erase_if(old, isManifest);
  std::erase_if(current, std::not_fn(isManifest));
  publishAs(_devices.laptop, old);
  publishAs(_devices.laptop, current);
  _devices.told.clear();
  _devices.startReceiving();
  EXPECT_TRUE(_devices.runUntilTold("receiving from laptop"));
  const std::size_t soFar = ignored();
  publishAs(_devices.laptop, {{"pellor/phone/laptop/key/none", Data{1}}});
  EXPECT_TRUE(_devices.runUntil([&] { return ignored() > soFar; })) << "all that came before was looked at";
  EXPECT_EQ(_devices.phone.stored("list"), friends(7));
  _devices.startSending();
  _devices.save({{"titles", Array{"Family"}}});
  EXPECT_TRUE(_devices.runUntilTold("stored generation 3"));
  EXPECT_EQ(_devices.phone.stored("list"), friends(7));
}

TEST_F(PairedDeviceTest, ARevokedDeviceGetsNoByteAndChangesNothing) {
  completeInitialSync();
  _devices.laptop.pairing.revoke();
  EXPECT_TRUE(_devices.runUntil([&] { return OutgoingFile(_devices.laptop.pairing.folder()).read().emptied.empty(); }));
  EXPECT_FALSE(_devices.sender->hasCompletedInitialSync());
  EXPECT_TRUE(retainedFor(_devices.phone).empty()) << "what was sealed for it is gone";
  _devices.save({{"list", friends(9)}});
  EXPECT_TRUE(_devices.sender->status().due.empty());

  // Paired anew the old keys open nothing.
  EXPECT_THROW(_devices.phone.pairing.pair(_devices.laptop.pairing.invitation()), DeviceError);
  _devices.phone.pairing.revoke();
  _devices.pair();
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(_devices.phone.stored("list"), friends(9));
  EXPECT_EQ(_devices.sender->status().generation, 1u);

  // Revoked at the broker: it takes nothing from the device.
  _devices.broker.allow({"phone"});
  _devices.save({{"list", friends(10)}});
  EXPECT_TRUE(_devices.runUntil([&] { return _devices.log->contains("does not allow to send"); }));
  EXPECT_EQ(_devices.sender->status().due.size(), 1u);
  EXPECT_EQ(_devices.phone.stored("list"), friends(9));
  _devices.broker.allow({"phone", "laptop"});
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(_devices.phone.stored("list"), friends(10));
}

TEST_F(PairedDeviceTest, AMuchSmallerListNeverOverwritesOneThatTheOtherDeviceDoesNotKnow) {
  _devices.phone.store("list", friends(10));
  _devices.laptop.store("titles", Array{"Family"});
  _devices.pair();
  _devices.startReceiving();
  _devices.startSending();
  const auto refusedIs = [&](std::uint64_t generation) {
    return [this, generation] {
      const auto refused = _devices.sender->status().refused;
      return refused && refused->generation == generation;
    };
  };
  ASSERT_TRUE(_devices.runUntil(refusedIs(1)));
  EXPECT_EQ(_devices.sender->status().refused->reason, "of 10 friends on this device 0 would be left");
  _devices.laptop.store("list", friends(4));
  _devices.sender->synchronizeDomainKeys(SyncDomain, {"list"});
  ASSERT_TRUE(_devices.runUntil(refusedIs(2)));
  EXPECT_FALSE(_devices.sender->hasCompletedInitialSync());
  EXPECT_EQ(_devices.phone.stored("list"), friends(10));
  EXPECT_EQ(_devices.phone.stored("titles"), std::nullopt) << "all of a generation or nothing";
  EXPECT_TRUE(_devices.runUntil([&] { return _devices.posts == 0; }));
  EXPECT_EQ(IncomingFile(_devices.phone.pairing.folder()).read().refused->generation, 2u);

  // The user confirms.
  _devices.receiver.reset();
  _devices.startReceiving(true);
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(_devices.phone.stored("list"), friends(4));
  EXPECT_EQ(_devices.phone.stored("titles"), Value(Array{"Family"}));
  EXPECT_EQ(_devices.sender->status().refused, std::nullopt);

  // From now on the list is the same one on both.
  _devices.receiver.reset();
  _devices.startReceiving();
  _devices.save({{"list", friends(0)}});
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(_devices.phone.stored("list"), friends(0));
}

TEST_F(PairedDeviceTest, AValueThatIsTooLargeIsNeitherSentNorTaken) {
  constexpr std::size_t limit = 20'000;
  completeInitialSync();
  _devices.sender.reset();
  _devices.largestSent = limit;
  _devices.startSending();
  _devices.save({{"list", friends(1)}, {"titles", Array{std::string(limit, 'x')}}});
  ASSERT_TRUE(_devices.runUntil([&] { return _devices.log->count("too large for the paired device") == 1; }));
  EXPECT_THAT(_devices.sender->status().problem, HasSubstr("too large for the paired device"));
  EXPECT_EQ(_devices.phone.stored("titles"), std::nullopt) << "nor is the rest of the edit sent";
  _devices.save({{"titles", Array{"short"}}});
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(_devices.phone.stored("titles"), Value(Array{"short"}));
  EXPECT_EQ(_devices.sender->status().problem, "");

  // One that keeps to no limit: the broker was asked to keep its messages back.
  _devices.receiver.reset();
  _devices.sender.reset();
  _devices.largestSent = LargestDeviceMessage;
  _devices.largestTaken = limit;
  _devices.startSending();
  _devices.startReceiving();
  _devices.save({{"titles", Array{std::string(2 * limit, 'x')}}});
  ASSERT_TRUE(_devices.runUntil([&] { return _devices.sender->status().due.empty(); }));
  const RawClient witness(_devices.process, _devices.broker, _devices.phone, {});
  ASSERT_TRUE(_devices.runUntil([&] { return witness.isDone(); }));
  EXPECT_TRUE(std::ranges::any_of(witness.heard(), [](const auto& each) { return each.second.size() > 2 * limit; }));
  _devices.save({{"titles", Array{"short again"}}});
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(_devices.phone.stored("titles"), Value(Array{"short again"}));
  EXPECT_FALSE(_devices.hasTold("declined")) << "it did not come so far";
}

TEST_F(PairedDeviceTest, HalfAGenerationIsNotStored) {
  completeInitialSync();
  // A process that was killed between the values and the manifest.
  _devices.sender.reset();
  const SyncTopics topics("phone", "laptop");
  const auto keys = _devices.laptop.pairing.sealingKeys();
  const std::string topic = topics.key(keys->nameFor(nameOf(DomainKey(SyncDomain, "list"))));
  const OutgoingFile file(_devices.laptop.pairing.folder());
  file.update([](OutgoingState& state) {
    state.request({SyncDomain, "list"});
    state.sent.erase({SyncDomain, "list"});
    ++state.generation;
  });
  const Data half = *encode(KeyMessage{{SyncDomain, "list"}, friends(8)});
  publishAs(_devices.laptop, {{topic, keys->seal(topic, file.read().generation, half)}});
  // The process that comes next finds another value, and one that was not meant to be sent before.
  _devices.laptop.store("list", friends(4));
  _devices.startSending();
  _devices.save({{"titles", Array{"Family"}}});
  ASSERT_TRUE(_devices.runUntilInStep());
  EXPECT_EQ(_devices.phone.stored("list"), friends(4));
  EXPECT_EQ(_devices.phone.stored("titles"), Value(Array{"Family"}));
  for (const std::string& line : _devices.told) EXPECT_EQ(line.find("stored generation 2"), std::string::npos);

  // Counting was lost: it goes on where the device is.
  const std::uint64_t last = _devices.sender->status().generation;
  _devices.sender.reset();
  writeFile(_devices.laptop.pairing.folder() / "outgoing", "damaged");
  _devices.laptop.store("list", friends(5));
  _devices.startSending();
  ASSERT_TRUE(_devices.runUntil([&] { return _devices.sender->status().acknowledged > last; }));
  EXPECT_EQ(_devices.phone.stored("list"), friends(5));
}

// Without a broker

TEST(DevicePairingTest, RefusesWhatDoesNotFit) {
  const Authority authority, elsewhere;
  const TemporaryFolder folder;
  const DevicePairing device(folder / "device"), other(folder / "other"), third(folder / "third");
  EXPECT_THROW(device.invitation(), DeviceError) << "it has no name";
  for (const char* name : {"", "a/b", "a:b", "plus+", "caf\xC3\xA9"}) {
    EXPECT_THROW(device.requestCertificate(name), DeviceError) << name;
  }
  authority.issue(device, "laptop");
  authority.issue(other, "phone");
  authority.issue(third, "laptop");
  EXPECT_THROW(device.importCertificate(other.folder() / "certificate.pem", authority.file, {}), DeviceError);
  EXPECT_THROW(device.importCertificate(device.folder() / "certificate.pem", elsewhere.file, {}), DeviceError);
  EXPECT_EQ(device.name(), "laptop");
  // Issued elsewhere together with its key.
  const DevicePairing imported(folder / "imported");
  imported.importCertificate(other.folder() / "certificate.pem", authority.file, other.folder() / "key.pem");
  EXPECT_EQ(imported.name(), "phone");

  const std::string invitation = other.invitation();
  EXPECT_THROW(device.pair(invitation.substr(0, invitation.size() - 1)), DeviceError);
  EXPECT_THROW(device.pair(device.invitation()), DeviceError);
  EXPECT_THROW(device.pair(third.invitation()), DeviceError) << "another device of the same name";
  device.pair("  " + invitation + "\n");
  device.pair(invitation);
  EXPECT_EQ(device.peer(), "phone");
  EXPECT_THROW(device.pair("pellor-device:1:tablet:" + invitation.substr(invitation.rfind(':') + 1)), DeviceError);
  const auto fingerprint = device.fingerprint();
  device.revoke();
  EXPECT_THROW(device.revoke(), DeviceError);
  device.pair(invitation);
  EXPECT_NE(device.fingerprint(), fingerprint) << "a pairing has keys of its own";
}

TEST(DevicePairingTest, NoLinkIsFollowedInThePlaceOfItsFiles) {
  const Authority authority;
  const TemporaryFolder folder;
  const DevicePairing other(folder / "other");
  authority.issue(other, "phone");
  const std::string invitation = other.invitation();
  const auto paired = [&](const DevicePairing& device) -> std::string {
    try {
      device.pair(invitation);
    } catch (const DeviceError& error) {
      return error.what();
    }
    return "";
  };
  const auto sent = [](const DevicePairing& device) {
    return OutgoingFile(device.folder()).update([](OutgoingState& state) { ++state.generation; }).value_or("");
  };
  const auto received = [](const DevicePairing& device) {
    LockPatience none(std::chrono::milliseconds(0));
    const IncomingFile file(device.folder());
    return file.waitForLock(none) ? file.write({}).value_or("") : lockError(device.folder() / "incoming.lock");
  };
  const struct {
    const char* file;
    std::function<std::string(const DevicePairing&)> use;
  } cases[] = {{"sealing", paired},     {"peer", paired},       {"outgoing", sent},
               {"outgoing.lock", sent}, {"incoming", received}, {"incoming.lock", received}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.file);
    const DevicePairing device(folder / (std::string("device-") + each.file));
    authority.issue(device, "laptop");
    const auto target = folder / (std::string("target-") + each.file);
    writeFile(target, "kept");
    std::filesystem::permissions(target, std::filesystem::perms{0644});
    std::filesystem::create_symlink(target, device.folder() / each.file);
    EXPECT_THAT(each.use(device), HasSubstr(std::string(each.file) + " is a link"));
    EXPECT_EQ(contentOf(target), "kept");
    EXPECT_EQ(modeOf(target), 0644u);
  }
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Brokered, PreferencesSyncServiceContract, BrokeredDevice);

}  // namespace pellor
