// Which one is meant of several persons who fit what the user typed.
#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Place.h"

namespace pellor::cli {

/// A person with what tells namesakes apart. What there is none of is empty.
struct Candidate {
  std::string name;
  std::string destination;     ///< the number or address as it is shown
  std::string organization;    ///< of a contact
  std::string guid;            ///< of a contact
  std::optional<Place> place;  ///< of a friend
};

/// The persons whom a text fits. They are numbered from 1.
struct Choice {
  static constexpr std::size_t MostCandidates = 20;

  std::string who;                    ///< as the user typed it
  std::size_t count = 0;              ///< of all whom it fits
  std::vector<Candidate> candidates;  ///< the first of them, MostCandidates at most
};

/// What is wrong with it, in one line.
std::string textOf(const Choice& choice);

/// The candidates a line, each with what to type for it, and a line that says how many more there are.
std::vector<std::string> linesOf(const Choice& choice);

/// `candidates` and `moreCandidates` of an error; docs/json.md describes them.
nlohmann::ordered_json jsonOf(const Choice& choice);

/// The user's next key, absent at the end of the input.
using KeyReader = std::function<std::optional<char>()>;
/// Shows the user a text, which is fit for a terminal.
using TextWriter = std::function<void(std::string_view)>;

/// Shows the candidates in lines of at most `width` columns and has the user choose one: by one key, or where there are
/// more than nine by a number and Enter. Its index; absent when the user chooses nobody.
std::optional<std::size_t> askFor(const Choice& choice, std::size_t width, const TextWriter& write,
                                  const KeyReader& readKey);

/// The index of the candidate whom the user chooses on the terminal, CommandError when that is nobody. AmbiguousError
/// where the user is not to be asked, or not at a terminal: standard input and standard error are to be one.
std::size_t chosenOf(const Choice& choice, bool mayAsk);

/// A text of the form WHO#N: of those whom WHO fits the one with that number.
struct NumberedWho {
  std::string who;
  std::size_t number = 0;
};

/// Absent for a text that is not of this form. N has no zero in front.
std::optional<NumberedWho> numberedWho(const std::string& text);

/// The index of the one who is meant of `count` persons whom WHO fits. Absent where the text says something else: WHO
/// fits nobody, or the whole may be a number or an address and WHO fits one alone. Throws CommandError when they are
/// fewer than N.
std::optional<std::size_t> indexOf(const NumberedWho& numbered, std::size_t count);

}  // namespace pellor::cli
