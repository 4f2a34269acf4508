#include "client/message_selection.h"

#include <algorithm>
#include <array>

namespace TamLogClient {

namespace {

// ASCII only: the encoding of other bytes is not known.
char ToLower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool SameLetter(char left, char right) {
  return ToLower(left) == ToLower(right);
}

bool MatchesName(std::string_view name, std::string_view glob) {
  std::size_t at = 0;
  std::size_t star = std::string_view::npos;
  std::size_t resume = 0;
  std::size_t in = 0;
  while (in < name.size()) {
    if (at < glob.size() && glob[at] == '*') {
      star = at++;
      resume = in;
    } else if (at < glob.size() && SameLetter(glob[at], name[in])) {
      ++at;
      ++in;
    } else if (star != std::string_view::npos) {
      at = star + 1;
      in = ++resume;
    } else {
      return false;
    }
  }
  return glob.find_first_not_of('*', at) == std::string_view::npos;
}

bool MatchesTerm(const LogMessageView& message, const SourceTerm& term) {
  const std::uint32_t type = message.Type();
  const bool typeFits = type < kMessageTypes ? ((term.types >> type) & 1U) != 0 : term.types == 0xF;
  return typeFits && MatchesName(message.Source(), term.name);
}

bool HasUpperCase(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char letter) { return letter >= 'A' && letter <= 'Z'; });
}

}  // namespace

std::optional<std::uint32_t> ParseTypes(std::string_view text) {
  std::uint32_t mask = 0;
  const auto digit = [](char letter) { return letter >= '0' && letter <= '3'; };
  while (!text.empty()) {
    if (!digit(text.front())) return std::nullopt;
    const auto first = static_cast<unsigned>(text.front() - '0');
    unsigned last = first;
    text.remove_prefix(1);
    if (text.size() >= 2 && text.front() == '-' && digit(text[1])) {
      last = static_cast<unsigned>(text[1] - '0');
      text.remove_prefix(2);
    }
    if (last < first) return std::nullopt;
    for (unsigned type = first; type <= last; ++type) mask |= 1U << type;
    if (text.empty()) break;
    if (text.front() != ',' || text.size() < 2) return std::nullopt;
    text.remove_prefix(1);
  }
  if (mask == 0) return std::nullopt;
  return mask;
}

std::optional<SourceTerm> ParseSourceTerm(std::string_view text) {
  SourceTerm term{std::string(text)};
  const std::size_t colon = text.rfind(':');
  if (colon != std::string_view::npos) {
    // A colon may belong to the name: only what reads as types is taken as types.
    const auto types = ParseTypes(text.substr(colon + 1));
    if (types) term = {std::string(text.substr(0, colon)), *types};
  }
  if (term.name.empty()) return std::nullopt;
  return term;
}

bool MessageSelection::SetPattern(const std::string& text, bool fixed, bool ignoreCase) {
  foldCase = ignoreCase || !HasUpperCase(text);
  if (fixed) {
    fixedPattern = text;
    return true;
  }
  try {
    const auto flags = std::regex::ECMAScript | std::regex::optimize;
    pattern.emplace(text, foldCase ? flags | std::regex::icase : flags);
  } catch (const std::regex_error&) {
    return false;
  }
  return true;
}

bool MessageSelection::Empty() const {
  return included.empty() && excluded.empty() && !types && !since && !until && !fixedPattern && !pattern;
}

bool MessageSelection::MatchesPattern(std::string_view text) const {
  if (fixedPattern) {
    if (!foldCase) return text.find(*fixedPattern) != std::string_view::npos;
    return std::search(text.begin(), text.end(), fixedPattern->begin(), fixedPattern->end(), SameLetter) !=
               text.end() ||
           fixedPattern->empty();
  }
  return !pattern || std::regex_search(text.begin(), text.end(), *pattern);
}

bool MessageSelection::Wants(const LogMessageView& message) const {
  const auto matches = [&message](const SourceTerm& term) { return MatchesTerm(message, term); };
  if (types && (message.Type() >= kMessageTypes || ((*types >> message.Type()) & 1U) == 0)) return false;
  if (since && message.Key() < *since) return false;
  if (until && message.Key() > *until) return false;
  if (!included.empty() && std::none_of(included.begin(), included.end(), matches)) return false;
  if (std::any_of(excluded.begin(), excluded.end(), matches)) return false;
  return MatchesPattern(message.Text());
}

}  // namespace TamLogClient
