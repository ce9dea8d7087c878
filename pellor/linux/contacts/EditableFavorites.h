// The favorites as the user edits them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace pellor {

/// One favorite; what is empty is unknown.
struct FavoriteLine {
  std::string guid;   ///< of the contact
  std::string value;  ///< a number or an address
  std::string name;
  friend bool operator==(const FavoriteLine&, const FavoriteLine&) = default;
};

/// Favorites that are kept in a file beside the contacts. Main queue.
class EditableFavorites {
 public:
  virtual ~EditableFavorites() = default;

  /// The favorites as they would be written; absent when the folder or the file cannot be read.
  virtual std::optional<std::vector<FavoriteLine>> lines() = 0;

  /// Changes the list. False leaves the file as it is.
  using Edit = std::function<bool(std::vector<FavoriteLine>& lines)>;
  enum class Outcome { done, refused, failed };
  /// Edits the list under a lock against other programs' edits and writes it in one step. Comments stay with the line
  /// that follows them. `failed` when the file could not be read or written: nothing has changed then and the log says
  /// why.
  virtual Outcome edit(const Edit& change) = 0;
  /// Why the file could not be read, written or locked at the last time; empty when it could.
  virtual const std::string& problem() const = 0;
};

}  // namespace pellor
