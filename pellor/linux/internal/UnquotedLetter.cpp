#include "pellor/linux/internal/UnquotedLetter.h"

#include <algorithm>
#include <string>

namespace pellor {
namespace {

constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";

class Walk {
 public:
  explicit Walk(std::string_view text) : _text(text) {
    if (_text.starts_with(ByteOrderMark)) _next = ByteOrderMark.size();
  }

  std::optional<std::size_t> lineOfUnquotedLetter() {
    while (_next < _text.size()) {
      const char here = _text[_next];
      if (static_cast<unsigned char>(here) >= 0x80) return line();
      if (here == '#') {
        _next = std::min(_text.find('\n', _next), _text.size());
      } else if (here == '"' || here == '\'') {
        passString(here);
      } else {
        ++_next;
      }
    }
    return std::nullopt;
  }

 private:
  std::size_t line() const { return 1 + static_cast<std::size_t>(std::ranges::count(_text.substr(0, _next), '\n')); }

  // A string between three quotes may have line ends in it, and two more quotes before its end.
  void passString(char quote) {
    const bool isLong = rest().starts_with(std::string(3, quote));
    const std::string end(isLong ? 3 : 1, quote);
    _next += end.size();
    while (_next < _text.size() && !rest().starts_with(end)) {
      if (!isLong && _text[_next] == '\n') return;
      const bool isEscape = quote == '"' && _text[_next] == '\\';
      _next += isEscape ? 2 : 1;
    }
    _next = std::min(_next + end.size(), _text.size());
    for (int left = 2; isLong && left > 0 && rest().starts_with(quote); --left) ++_next;
  }

  std::string_view rest() const { return _text.substr(_next); }

  const std::string_view _text;
  std::size_t _next = 0;
};

}  // namespace

std::optional<std::size_t> lineOfUnquotedLetter(std::string_view toml) { return Walk(toml).lineOfUnquotedLetter(); }

}  // namespace pellor
