// Names by what their words begin with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace pellor::cli {

/// Finds names as fast as they are found in an ordered list, however many there are. Names are compared byte by byte.
class WordBeginnings {
 public:
  /// A name of the person with that number; one person may have several.
  void add(std::size_t person, std::string name);

  /// The persons with a name that begins with the text at its start or behind a blank, ascending, each once;
  /// nobody for an empty text. After the first call no more names are added.
  std::vector<std::size_t> find(std::string_view text);

  /// How often two texts were compared so far, for measuring what a search costs.
  std::size_t comparisons() const { return _comparisons; }

 private:
  struct Beginning {
    std::uint32_t name;
    std::uint32_t offset;
  };
  struct Name {
    std::size_t person;
    std::string text;
  };

  std::string_view rest(const Beginning& beginning) const;
  void order();

  std::vector<Name> _names;
  std::vector<Beginning> _beginnings;  ///< ordered by what follows, once `find` was called
  bool _isOrdered = false;
  std::size_t _comparisons = 0;
};

}  // namespace pellor::cli
