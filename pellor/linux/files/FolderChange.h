// What may have changed in a folder.
#pragma once

#include <set>
#include <string>

namespace pellor {

struct FolderChange {
  bool everything = false;
  std::set<std::string> names;  ///< of files

  static FolderChange all() { return {true, {}}; }
  bool isEmpty() const { return !everything && names.empty(); }
  void merge(const FolderChange& other) {
    everything = everything || other.everything;
    names.insert(other.names.begin(), other.names.end());
  }
};

}  // namespace pellor
