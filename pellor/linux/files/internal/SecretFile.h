// A password or an access token that the user keeps in a file.
#pragma once

#include <filesystem>
#include <string>

namespace pellor {

struct Secret {
  std::string text;             ///< the file's first line, without blanks at its ends; empty with a problem
  std::string problem;          ///< why there is none, for the user
  bool isOpenToOthers = false;  ///< others than the owner may read or write the file
};

/// Reads it anew each time, so that one that was replaced counts from then on. Any thread.
Secret readSecret(const std::filesystem::path& file);

}  // namespace pellor
