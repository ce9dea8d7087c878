// Bytes as values and archives.
#include <memory>

#include "fuzz/FuzzTarget.h"
#include "fuzz/FuzzedWorld.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/KeyedCoder.h"

namespace pellor::fuzzing {

// One value has one encoding. Values are compared as bytes: a real may be no number.
void fuzzValue(Bytes bytes) {
  const auto value = decodeCBOR(bytes);
  if (!value) return;
  const auto written = encodeCBOR(*value);
  require(written.has_value(), "that a value can be written which was read");
  const auto again = decodeCBOR(*written);
  require(again.has_value(), "that a value can be read which was written");
  require(encodeCBOR(*again) == written, "one encoding of one value");
}

// What a person keeps of an archive it keeps for ever.
void fuzzArchive(Bytes bytes) {
  const auto value = decodeCBOR(bytes);
  if (!value || !value->dictionary()) return;
  FuzzedWorld world;
  FuzzedProcess process(world);
  process.run([&] {
    const Reading reading;
    KeyedArchive once, twice;
    PLPerson::initWithCoder(KeyedArchive(*value->dictionary()))->encodeWithCoder(once);
    PLPerson::initWithCoder(once)->encodeWithCoder(twice);
    require(encodeCBOR(once.content()) == encodeCBOR(twice.content()), "an archive that comes back as it was");
  });
}

}  // namespace pellor::fuzzing
