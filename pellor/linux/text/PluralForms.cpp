#include "pellor/linux/text/PluralForms.h"

#include <charconv>

namespace pellor {
namespace {

constexpr std::uint64_t MostForms = 16;
constexpr std::size_t LongestExpression = 1000;
constexpr int DeepestExpression = 50;

/// Absent after a division by zero.
using Number = std::optional<std::uint64_t>;

template <class Operation>
Number both(Number left, Number right, Operation operation) {
  return left && right ? Number(operation(*left, *right)) : std::nullopt;
}

Number anyOf(Number left, Number right) {
  if (!left || *left != 0) return left ? Number(1) : left;
  return right ? Number(*right != 0) : right;
}

Number allOf(Number left, Number right) {
  if (!left || *left == 0) return left;
  return right ? Number(*right != 0) : right;
}

struct Operator {
  std::string_view sign;
  int rank;
  Number (*apply)(Number left, Number right);
};

// Of two signs that begin alike the longer one comes first.
constexpr Operator Operators[] = {
    {"||", 0, anyOf},
    {"&&", 1, allOf},
    {"==", 2, [](Number a, Number b) { return both(a, b, [](auto x, auto y) { return x == y; }); }},
    {"!=", 2, [](Number a, Number b) { return both(a, b, [](auto x, auto y) { return x != y; }); }},
    {"<=", 3, [](Number a, Number b) { return both(a, b, [](auto x, auto y) { return x <= y; }); }},
    {">=", 3, [](Number a, Number b) { return both(a, b, [](auto x, auto y) { return x >= y; }); }},
    {"<", 3, [](Number a, Number b) { return both(a, b, [](auto x, auto y) { return x < y; }); }},
    {">", 3, [](Number a, Number b) { return both(a, b, [](auto x, auto y) { return x > y; }); }},
    {"+", 4, [](Number a, Number b) { return both(a, b, [](auto x, auto y) { return x + y; }); }},
    {"-", 4, [](Number a, Number b) { return both(a, b, [](auto x, auto y) { return x - y; }); }},
    {"*", 5, [](Number a, Number b) { return both(a, b, [](auto x, auto y) { return x * y; }); }},
    {"/", 5, [](Number a, Number b) { return b == 0u ? Number() : both(a, b, [](auto x, auto y) { return x / y; }); }},
    {"%", 5, [](Number a, Number b) { return b == 0u ? Number() : both(a, b, [](auto x, auto y) { return x % y; }); }},
};

/// Takes a text apart from its beginning, blanks between the tokens.
class Tokens {
 public:
  explicit Tokens(std::string_view text) : _rest(text) { skipBlanks(); }

  bool isAtEnd() const { return _rest.empty(); }
  void drop() { _rest = {}; }
  bool startsWith(std::string_view token) const { return _rest.starts_with(token); }

  bool take(std::string_view token) {
    if (!startsWith(token)) return false;
    advance(token.size());
    return true;
  }

  Number takeNumber() {
    std::uint64_t number = 0;
    const char* const end = _rest.data() + _rest.size();
    const auto [rest, error] = std::from_chars(_rest.data(), end, number);
    if (error != std::errc()) return std::nullopt;
    advance(static_cast<std::size_t>(rest - _rest.data()));
    return number;
  }

  /// What is left before the end mark; all that is left where there is none.
  std::string_view before(char endMark) const { return _rest.substr(0, _rest.find(endMark)); }

 private:
  void advance(std::size_t length) {
    _rest.remove_prefix(length);
    skipBlanks();
  }

  void skipBlanks() {
    const std::size_t blanks = _rest.find_first_not_of(" \t\r");
    _rest.remove_prefix(blanks == std::string_view::npos ? _rest.size() : blanks);
  }

  std::string_view _rest;
};

/// Works an expression out while it reads it; branches that are not taken are read as well.
class Evaluation {
 public:
  Evaluation(std::string_view expression, std::uint64_t n) : _tokens(expression), _n(n), _value(conditional()) {
    if (!_tokens.isAtEnd()) _isMalformed = true;
  }

  Number value() const { return _isMalformed ? std::nullopt : _value; }
  bool isMalformed() const { return _isMalformed; }

 private:
  Number conditional() {
    if (++_depth > DeepestExpression) return malformed();
    Number result = operation(0);
    if (_tokens.take("?")) {
      const Number then = conditional();
      if (!_tokens.take(":")) return malformed();
      const Number otherwise = conditional();
      if (result) result = *result != 0 ? then : otherwise;
    }
    --_depth;
    return result;
  }

  Number operation(int lowestRank) {
    Number left = operand();
    while (const Operator* found = nextOperator(lowestRank)) {
      _tokens.take(found->sign);
      const Number right = operation(found->rank + 1);
      left = found->apply(left, right);
    }
    return left;
  }

  const Operator* nextOperator(int lowestRank) const {
    for (const Operator& candidate : Operators) {
      if (_tokens.startsWith(candidate.sign)) return candidate.rank >= lowestRank ? &candidate : nullptr;
    }
    return nullptr;
  }

  Number operand() {
    int negations = 0;
    while (_tokens.take("!")) ++negations;
    const Number value = primary();
    if (!value || negations == 0) return value;
    return (*value != 0) == (negations % 2 == 0) ? 1 : 0;
  }

  Number primary() {
    if (_tokens.take("n")) return _n;
    if (!_tokens.take("(")) {
      const Number number = _tokens.takeNumber();
      return number ? number : malformed();
    }
    const Number value = conditional();
    return _tokens.take(")") ? value : malformed();
  }

  // Leaves nothing to read, so that all that is under way comes to its end.
  Number malformed() {
    _isMalformed = true;
    _tokens.drop();
    return std::nullopt;
  }

  bool _isMalformed = false;
  int _depth = 0;
  Tokens _tokens;
  const std::uint64_t _n;
  const Number _value;
};

}  // namespace

std::optional<PluralForms> PluralForms::read(std::string_view field) {
  Tokens tokens(field);
  if (!tokens.take("nplurals") || !tokens.take("=")) return std::nullopt;
  const Number formCount = tokens.takeNumber();
  if (!formCount || *formCount < 1 || *formCount > MostForms) return std::nullopt;
  if (!tokens.take(";") || !tokens.take("plural") || !tokens.take("=")) return std::nullopt;
  const std::string_view expression = tokens.before(';');
  if (expression.size() > LongestExpression || Evaluation(expression, 0).isMalformed()) return std::nullopt;
  PluralForms forms;
  forms._formCount = static_cast<std::size_t>(*formCount);
  forms._expression = expression;
  return forms;
}

std::size_t PluralForms::formFor(std::uint64_t count) const {
  const Number form = Evaluation(_expression, count).value();
  return form && *form < _formCount ? static_cast<std::size_t>(*form) : 0;
}

}  // namespace pellor
