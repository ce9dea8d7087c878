// Where the cards of an address book come from.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "pellor/linux/files/FolderChange.h"

namespace pellor {

/// The largest file of cards that is read.
inline constexpr std::int64_t ContactFileSizeLimit = std::int64_t{512} * 1024 * 1024;

/// What tells without reading whether a card may have changed; what the marks are is the source's business. All zero
/// when nothing can be told: the card has to be read again.
struct CardSignature {
  std::array<std::int64_t, 4> marks{};
  bool isKnown() const { return *this != CardSignature(); }
  friend bool operator==(const CardSignature&, const CardSignature&) = default;
};

struct CardContent {
  CardSignature signature;          ///< from before the content was read
  std::optional<std::string> text;  ///< the vCard, or several; absent when it cannot be read
  std::string problem;              ///< why it cannot
  bool isMissing = false;           ///< whether there is no such card any more
  bool isForNow = false;            ///< whether the system lacks what it takes to read any card, not this one alone
};

/// Why the source gives no cards.
class CardSourceError : public std::runtime_error {
 public:
  enum class Remedy {
    toldOf,     ///< the source's watch tells when there are cards
    tryAgain,   ///< somebody has to look again
    soonToldOf  ///< like `toldOf`, and nothing is wrong: the first answer is on its way
  };
  CardSourceError(const std::string& message, Remedy remedy) : std::runtime_error(message), _remedy(remedy) {}
  Remedy remedy() const { return _remedy; }

 private:
  Remedy _remedy;
};

/// What the watch of a source tells.
struct CardNews {
  FolderChange change;            ///< which cards may be other ones
  bool favoritesChanged = false;  ///< whether a list of favorites that the source keeps beside the cards may be
  std::string problem;            ///< why nothing can be noticed at present; empty when all is well

  /// Adds what was told later.
  void merge(const CardNews& later) {
    change.merge(later.change);
    favoritesChanged = favoritesChanged || later.favoritesChanged;
    problem = later.problem;
  }
};

/// A running watch. Its end waits for a call of the handler that is under way; there is none afterwards.
class CardWatch {
 public:
  CardWatch() = default;
  virtual ~CardWatch() = default;
  CardWatch(const CardWatch&) = delete;
  CardWatch& operator=(const CardWatch&) = delete;
};

/// One thread at a time, but for what a watch does on a thread of its own. A card keeps its name as long as it is
/// there.
class CardSource {
 public:
  virtual ~CardSource() = default;

  /// Stands for the source in the index. Other contacts have another name.
  virtual std::string name() const = 0;
  /// What the log and the user read: "the contacts folder <path>".
  virtual std::string title() const = 0;
  /// What the log calls a card, before its name.
  virtual std::string cardTitle() const = 0;
  /// The unique identifier of the source's database; empty where it has none, or does not know it before the cards have
  /// been listed: the index then makes one.
  virtual std::string databaseUID() const = 0;

  // These throw CardSourceError when the source cannot tell which cards there are. No cards are no error.

  /// All cards by their names, without reading them.
  virtual std::map<std::string, CardSignature> list() = 0;
  /// The signature of one card; absent when there is no such card, unknown when it cannot be reached.
  virtual std::optional<CardSignature> signature(const std::string& card) = 0;

  virtual CardContent read(const std::string& card) = 0;

  /// Tells of every change from the moment on when this returns, on a thread of its own. The handler must not end the
  /// watch. One watch at a time.
  virtual std::unique_ptr<CardWatch> watch(std::function<void(const CardNews& news)> handler) = 0;
};

}  // namespace pellor
