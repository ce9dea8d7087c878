#include "pellor/linux/preferences/internal/MachinePreferences.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <utility>
#include <vector>

#include "pellor/linux/files/internal/NettleDigest.h"

namespace pellor {
namespace {

constexpr const char* FollowerKey = "ContactsMachine";

std::string nameOfSystem() {
  std::string name;
  std::getline(std::ifstream("/etc/machine-id"), name);
  if (!name.empty()) return name;
  std::array<char, 256> host{};
  return ::gethostname(host.data(), host.size() - 1) == 0 ? host.data() : "";
}

}  // namespace

MachinePreferences::MachinePreferences(std::shared_ptr<SharedPreferences> store, std::string machine,
                                       std::string followsContacts)
    : _store(std::move(store)), _machine(std::move(machine)), _followsContacts(std::move(followsContacts)) {}

std::string MachinePreferences::machineName(const std::filesystem::path& dataFolder) {
  constexpr const char* digits = "0123456789abcdef";
  const std::string text = nameOfSystem() + "\n" + std::filesystem::absolute(dataFolder).lexically_normal().string();
  std::string name;
  for (const std::uint8_t byte :
       NettleDigest().sha1(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()))) {
    name += digits[byte >> 4];
    name += digits[byte & 0xF];
  }
  return name;
}

bool MachinePreferences::isFollower(std::string_view domain) {
  const auto follower = [&] { return _store->copyValue(FollowerKey, domain); };
  auto known = follower();
  // Of several machines that start at once one is the first.
  if (known.isReadable() && !known.value() && _store->insertIfAbsent({{FollowerKey, _machine}}, domain))
    known = follower();
  return known.value() == Value(_machine);
}

PreferenceAnswer<Value> MachinePreferences::copyValue(std::string_view key, std::string_view domain) {
  auto answer = _store->copyValue(key, domain);
  if (key != _followsContacts || !answer.isReadable() || isFollower(domain)) return answer;
  return PreferenceAnswer<Value>::some(false);
}

PreferenceAnswer<VersionedPreferences> MachinePreferences::read(std::span<const std::string> keys,
                                                                std::string_view domain) {
  if (std::ranges::find(keys, _followsContacts) == keys.end()) return _store->read(keys, domain);
  std::vector<std::string> asked(keys.begin(), keys.end());
  asked.emplace_back(FollowerKey);
  auto answer = _store->read(asked, domain);
  const auto isUndecided = [&] { return answer.isReadable() && !answer.value()->at(FollowerKey).value; };
  if (isUndecided() && _store->insertIfAbsent({{FollowerKey, _machine}}, domain)) answer = _store->read(asked, domain);
  if (!answer.isReadable()) return answer;
  VersionedPreferences found = *answer.value();
  if (found.at(FollowerKey).value != Value(_machine)) found.at(_followsContacts).value = false;
  if (std::ranges::find(keys, FollowerKey) == keys.end()) found.erase(FollowerKey);
  return PreferenceAnswer<VersionedPreferences>::some(std::move(found));
}

PreferenceWriteAnswer MachinePreferences::write(const PreferenceChanges& changes, PreferenceWriteID id,
                                                std::string_view domain) {
  const auto setting = changes.find(_followsContacts);
  const bool isToFollow = setting != changes.end() && setting->second.value && setting->second.value->boolean() == true;
  if (!isToFollow || changes.contains(FollowerKey)) return _store->write(changes, id, domain);
  PreferenceChanges withFollower = changes;
  withFollower[FollowerKey] = {PreferenceChange::Kind::set, _machine, std::nullopt};
  PreferenceWriteAnswer answer = _store->write(withFollower, id, domain);
  answer.written.erase(FollowerKey);
  return answer;
}

void MachinePreferences::setValue(std::string_view key, std::optional<Value> value, std::string_view domain) {
  if (key == _followsContacts && value && value->boolean() == true) _store->setValue(FollowerKey, _machine, domain);
  _store->setValue(key, std::move(value), domain);
}

}  // namespace pellor
