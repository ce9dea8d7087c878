#include "linux/MachinePreferences.h"

#include <unistd.h>

#include <array>
#include <fstream>
#include <utility>

#include "linux/NettleDigest.h"

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

void MachinePreferences::setValue(std::string_view key, std::optional<Value> value, std::string_view domain) {
  if (key == _followsContacts && value && value->boolean() == true) _store->setValue(FollowerKey, _machine, domain);
  _store->setValue(key, std::move(value), domain);
}

}  // namespace pellor
