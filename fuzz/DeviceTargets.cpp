// What a paired device sends, opened, and what this one remembers of it.
#include <optional>

#include "fuzz/FuzzTarget.h"
#include "pellor/linux/mosquitto/PushState.h"
#include "pellor/linux/mosquitto/SealingKeys.h"
#include "pellor/linux/mosquitto/SyncMessages.h"
#include "pellor/runtime/Fatal.h"

namespace pellor::fuzzing {
namespace {

// Equal messages have equal bytes.
template <class Message>
void requireOneEncoding(const std::optional<Message>& message, std::optional<Message> (*decoded)(Bytes)) {
  if (!message) return;
  const std::optional<Data> written = encode(*message);
  require(written.has_value(), "a message that can be sent which came");
  const auto again = decoded(*written);
  require(again && std::optional<Data>(encode(*again)) == written, "one encoding of one message");
}

template <class Message>
void fuzz(Bytes bytes, std::optional<Message> (*decode)(Bytes)) {
  requireOneEncoding(decode(bytes), decode);
}

// Nobody but the other device can write a message for this one.
void fuzzSealed(Bytes bytes) {
  static const SealingKeyPair own = SealingKeyPair::make(), other = SealingKeyPair::make();
  static const auto keys = SealingKeys::agree(own, other.publicKey);
  require(!keys->open("pellor/a/b/manifest", bytes), "a seal that nobody else can make");
}

}  // namespace

void fuzzDeviceMessage(Bytes bytes) {
  if (bytes.empty()) return;
  const Bytes message = bytes.subspan(1);
  switch (bytes.front() % 6) {
    case 0:
      return fuzz<KeyMessage>(message, decodeKeyMessage);
    case 1:
      return fuzz<ManifestMessage>(message, decodeManifest);
    case 2:
      return fuzz<Acknowledgement>(message, decodeAcknowledgement);
    case 3:
      return fuzz<OutgoingState>(message, decodeOutgoingState);
    case 4:
      return fuzz<IncomingState>(message, decodeIncomingState);
    default:
      return fuzzSealed(message);
  }
}

}  // namespace pellor::fuzzing
