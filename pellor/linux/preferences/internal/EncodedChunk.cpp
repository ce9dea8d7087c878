#include "pellor/linux/preferences/internal/EncodedChunk.h"

#include <limits>
#include <optional>
#include <utility>

#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/internal/CBORDecoder.h"
#include "pellor/runtime/internal/CBOREncoder.h"
#include "pellor/runtime/internal/CBORFormat.h"

namespace pellor {
namespace {

static_assert(CBORMaximumSize <= std::numeric_limits<std::uint32_t>::max(), "offsets are kept in 32 bits");

// Arrays around an element.
constexpr std::size_t Depth = 1;

/// Goes through bytes that were checked, faster than a decoder that has to check them.
class CheckedItems {
 public:
  explicit CheckedItems(std::span<const std::uint8_t> bytes) : _bytes(bytes) {}

  CBORHead::Type type() const { return static_cast<CBORHead::Type>(_bytes[0] >> 5); }

  /// The number in the head, which it goes past.
  std::uint64_t number() {
    CBORHead head;
    head.takeFrom(_bytes);
    return head.number;
  }

  std::string_view text() {
    const std::uint64_t length = number();
    const std::string_view text(reinterpret_cast<const char*>(_bytes.data()), length);
    _bytes = _bytes.subspan(length);
    return text;
  }

  Value value(std::size_t depth) {
    CBORDecoder decoder(_bytes);
    std::optional<Value> value = decoder.value(depth);
    _bytes = decoder.rest();
    return *std::move(value);
  }

 private:
  std::span<const std::uint8_t> _bytes;
};

void showArray(CheckedItems& items, EntryView& entry) {
  CheckedItems whole = items;
  for (std::uint64_t left = items.number(); left > 0; --left) {
    if (items.type() == CBORHead::Type::text) {
      entry.texts.push_back(items.text());
    } else {
      entry.hasOnlyTexts = false;
      items.value(Depth + 2);
    }
  }
  if (!entry.hasOnlyTexts) entry.value = whole.value(Depth + 1);
}

void showOther(CheckedItems& items, std::string_view key, DictionaryView& view) {
  Value value = items.value(Depth + 1);
  view.append(key, value.kind()).value = std::move(value);
}

void showEntry(CheckedItems& items, DictionaryView& view) {
  const std::string_view key = items.text();
  switch (items.type()) {
    case CBORHead::Type::integer:
      view.append(key, Value::Kind::integer).integer = static_cast<std::int64_t>(items.number());
      break;
    case CBORHead::Type::negative:
      view.append(key, Value::Kind::integer).integer = -1 - static_cast<std::int64_t>(items.number());
      break;
    case CBORHead::Type::text:
      view.append(key, Value::Kind::string).text = items.text();
      break;
    case CBORHead::Type::array:
      showArray(items, view.append(key, Value::Kind::array));
      break;
    default:
      showOther(items, key, view);
  }
}

}  // namespace

std::shared_ptr<const EncodedChunk> EncodedChunk::decode(std::span<const std::uint8_t> bytes) {
  if (bytes.size() > CBORMaximumSize) return nullptr;
  const auto chunk = std::make_shared<EncodedChunk>(Passkey{});
  chunk->_bytes.assign(bytes.begin(), bytes.end());
  return chunk->findElements() ? chunk : nullptr;
}

bool EncodedChunk::findElements() {
  CBORDecoder decoder(_bytes);
  const CBORItem head = decoder.next();
  if (head.kind != CBORItem::Kind::array || head.number < 1 || head.number > LongArray::ChunkSize) return false;
  _size = head.number;
  for (std::size_t index = 0; index <= _size; ++index) {
    _offsets[index] = static_cast<std::uint32_t>(_bytes.size() - decoder.rest().size());
    if (index < _size && !decoder.skip(Depth)) return false;
  }
  if (!decoder.rest().empty()) return false;
  return decoder.keysWereInOrder() || putInOrder();
}

// What others wrote may have its keys in any order, but not twice.
bool EncodedChunk::putInOrder() {
  const std::optional<Value> array = decodeCBOR(_bytes);
  if (!array) return false;
  _bytes = *encodeCBOR(*array);
  return findElements();
}

std::shared_ptr<const EncodedChunk> EncodedChunk::encode(const std::shared_ptr<const ArrayChunk>& original) {
  const ArrayChunk& chunk = *original;
  if (chunk.size() < 1 || chunk.size() > LongArray::ChunkSize) return nullptr;
  const auto encoded = std::make_shared<EncodedChunk>(Passkey{});
  encoded->_madeOf = original;
  encoded->_size = chunk.size();
  Data& bytes = encoded->_bytes;
  CBORHead{CBORHead::Type::array, chunk.size()}.appendTo(bytes);
  for (std::size_t index = 0; index < chunk.size(); ++index) {
    encoded->_offsets[index] = static_cast<std::uint32_t>(bytes.size());
    if (!append(chunk, index, bytes)) return nullptr;
  }
  encoded->_offsets[chunk.size()] = static_cast<std::uint32_t>(bytes.size());
  bytes.shrink_to_fit();
  return encoded;
}

bool EncodedChunk::append(const ArrayChunk& chunk, std::size_t index, Data& bytes) {
  const Origin origin = chunk.origin(index);
  const auto* encoded = dynamic_cast<const EncodedChunk*>(origin.chunk.get());
  if (!encoded) return appendCBOR(chunk.at(index), Depth, bytes);
  const auto element = encoded->element(origin.index);
  bytes.insert(bytes.end(), element.begin(), element.end());
  return bytes.size() <= CBORMaximumSize;
}

Value EncodedChunk::at(std::size_t index) const { return *CBORDecoder(element(index)).value(Depth); }

bool EncodedChunk::view(std::size_t index, DictionaryView& view) const {
  view.clear();
  CheckedItems items(element(index));
  if (items.type() != CBORHead::Type::map) return false;
  for (std::uint64_t left = items.number(); left > 0; --left) showEntry(items, view);
  return true;
}

std::span<const std::uint8_t> EncodedChunk::element(std::size_t index) const {
  return std::span(_bytes).subspan(_offsets[index], _offsets[index + 1] - _offsets[index]);
}

}  // namespace pellor
