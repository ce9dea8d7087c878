#include "pellor/runtime/internal/FunctionName.h"

#include <algorithm>
#include <cstddef>

namespace pellor {

namespace {

constexpr std::string_view OperatorWord = "operator";
constexpr std::string_view LambdaName = "operator()";

/// Drops " [with T = int]" (GCC) or " [T = int]" (clang).
std::string_view withoutTemplateNote(std::string_view signature) {
  if (!signature.ends_with(']')) return signature;
  const auto gccNote = signature.find(" [with ");
  return signature.substr(0, gccNote != std::string_view::npos ? gccNote : signature.rfind(" ["));
}

bool isNameCharacter(char c) {
  // The bytes of other alphabets are beyond ASCII.
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$' ||
         static_cast<unsigned char>(c) >= 0x80;
}

bool startsOperator(std::string_view text) {
  return text.starts_with(OperatorWord) && text.size() > OperatorWord.size() &&
         !isNameCharacter(text[OperatorWord.size()]);
}

/// `text` begins with the word "operator".
std::string_view operatorName(std::string_view text) {
  const auto symbol = text.substr(OperatorWord.size());
  std::size_t length = 2;
  if (!symbol.starts_with("()") && !symbol.starts_with("[]")) {
    // A conversion is named after its type, which goes up to the parameters. Some compilers put the space before all.
    length = symbol.front() == ' ' ? symbol.find('(', 2) : symbol.find_first_not_of("<>=!+-*/%^&|~,");
  }
  return text.substr(0, OperatorWord.size() + std::min(length, symbol.size()));
}

bool startsLambda(std::string_view text) {
  return text.starts_with("<lambda") || text.starts_with("(anonymous class)") || text.starts_with("(lambda");
}

/// Text behind the parameters that is no part of the name: a return type or a constraint.
bool startsTail(std::string_view text) { return text.starts_with("->") || text.starts_with(" requires "); }

bool isName(std::string_view text) {
  if (text.starts_with('~')) text.remove_prefix(1);
  return !text.empty() && std::ranges::all_of(text, isNameCharacter);
}

int depthChange(char c) {
  if (c == '(' || c == '<' || c == '{') return 1;
  return c == ')' || c == '>' || c == '}' ? -1 : 0;
}

}  // namespace

std::string functionName(std::string_view signature) {
  const std::string_view text = withoutTemplateNote(signature);
  std::string_view name = text;  // from the last scope or return type on
  bool hasParameters = false;
  int depth = 0;
  for (std::size_t at = 0; at < text.size(); depth += depthChange(text[at++])) {
    if (depth > 0) continue;
    const std::string_view rest = text.substr(at);
    if (hasParameters && startsTail(rest)) break;
    if (rest.starts_with("::")) {
      if (startsLambda(rest.substr(2))) {
        name = name.substr(0, name.size() - rest.size());
        break;
      }
      name = text.substr(++at + 1);
      hasParameters = false;
    } else if (startsOperator(rest) && rest.data() == name.data()) {
      return std::string(operatorName(rest));
    } else if (rest.front() == '(') {
      hasParameters = true;
    } else if (rest.front() == ' ' && !hasParameters) {
      name = rest.substr(1);
    }
  }
  if (startsLambda(name)) return std::string(LambdaName);
  name = name.substr(0, name.find_first_of("<("));
  return std::string(isName(name) ? name : signature);
}

}  // namespace pellor
