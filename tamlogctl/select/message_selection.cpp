#include "tamlogctl/select/message_selection.h"

#include <algorithm>

#include "tamlogctl/base/glob.h"

namespace TamLogCtl {

using TamLogClient::LogMessageView;

namespace {

bool SameLetter(char left, char right) {
  return ToLowerAscii(left) == ToLowerAscii(right);
}

}  // namespace

bool MatchesName(std::string_view name, std::string_view glob) {
  return MatchesGlob(name, glob, SameLetter);
}

namespace {

bool MatchesTerm(std::string_view source, std::uint32_t type, const SourceTerm& term) {
  const bool typeFits = type < kMessageTypes ? ((term.types >> type) & 1U) != 0 : term.types == 0xF;
  return typeFits && MatchesName(source, term.name);
}

// Removes the first line from `lines`; returns it without its line end and the spaces around it.
std::string_view TakeLine(std::string_view& lines) {
  constexpr std::string_view kSpace = " \t\r";
  const std::size_t end = lines.find('\n');
  std::string_view line = lines.substr(0, end);
  lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
  line.remove_prefix(std::min(line.find_first_not_of(kSpace), line.size()));
  return line.substr(0, line.find_last_not_of(kSpace) + 1);
}

std::optional<std::uint32_t> TypeNamed(std::string_view item, const TamLogClient::TypeNames& names) {
  for (std::uint32_t type = 0; type < kMessageTypes; ++type) {
    std::string name;
    names.Append(type, name);
    if (std::equal(name.begin(), name.end(), item.begin(), item.end(), SameLetter)) return type;
  }
  return std::nullopt;
}

// "T1-T3" without the letters: "1-3". Anything else unchanged.
std::string WithoutLetters(std::string_view item) {
  std::string digits;
  for (std::size_t i = 0; i < item.size(); ++i) {
    const bool begins = i == 0 || item[i - 1] == '-';
    if (!begins || !SameLetter(item[i], 'T')) digits += item[i];
  }
  return digits;
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

std::optional<std::uint32_t> ParseTypes(std::string_view text, const TamLogClient::TypeNames& names) {
  std::uint32_t mask = 0;
  for (bool more = true; more;) {
    const std::size_t comma = text.find(',');
    const std::string_view item = text.substr(0, comma);
    more = comma != std::string_view::npos;
    text.remove_prefix(more ? comma + 1 : text.size());
    if (const auto type = TypeNamed(item, names)) {
      mask |= 1U << *type;
      continue;
    }
    const auto types = ParseTypes(WithoutLetters(item));
    if (!types) return std::nullopt;
    mask |= *types;
  }
  return mask;
}

std::uint32_t TypesOfSeverity(int severity, const TamLogClient::TypeNames& names) {
  constexpr int kInformational = 6;
  std::uint32_t mask = 0;
  for (std::uint32_t type = 0; type < kMessageTypes; ++type) {
    if (names.Severity(type).value_or(kInformational) <= severity) mask |= 1U << type;
  }
  return mask;
}

std::optional<SourceTerm> ParseSourceTerm(std::string_view text) {
  SourceTerm term{std::string(text)};
  const std::size_t colon = text.rfind(':');
  if (colon != std::string_view::npos &&
      text.find_first_not_of("0123456789,-", colon + 1) == std::string_view::npos) {
    const auto types = ParseTypes(text.substr(colon + 1));
    if (!types) return std::nullopt;
    term = {std::string(text.substr(0, colon)), *types};
  }
  if (term.name.empty()) return std::nullopt;
  return term;
}

bool MessageSelection::AddTerms(std::string_view lines, std::size_t& badLine) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (lines.starts_with(kByteOrderMark)) lines.remove_prefix(kByteOrderMark.size());
  for (badLine = 1; !lines.empty(); ++badLine) {
    std::string_view line = TakeLine(lines);
    if (line.empty() || line.front() == '#') continue;
    const bool excludes = line.front() == '!';
    if (excludes || line.starts_with("\\#") || line.starts_with("\\!")) line.remove_prefix(1);
    auto term = ParseSourceTerm(line);
    if (!term) return false;
    (excludes ? excluded : included).push_back(std::move(*term));
  }
  return true;
}

bool MessageSelection::Empty() const {
  return included.empty() && excluded.empty() && !types && !since && !until && patterns.empty() &&
         antiPatterns.empty();
}

std::string_view MessageSelection::Decode(std::string_view bytes) const {
  if (!encoding || TamLogClient::IsPlainText(bytes)) return bytes;
  decoded.clear();
  encoding->Decode(
      bytes, [this](std::string_view utf8) { decoded += utf8; }, [this](char byte) { decoded += byte; });
  return decoded;
}

bool MessageSelection::WantsSource(const LogMessageView& message) const {
  const std::string_view source = Decode(message.Source());
  const auto matches = [&message, source](const SourceTerm& term) {
    return MatchesTerm(source, message.Type(), term);
  };
  if (!included.empty() && std::none_of(included.begin(), included.end(), matches)) return false;
  return std::none_of(excluded.begin(), excluded.end(), matches);
}

bool MessageSelection::WantsText(std::string_view text) const {
  const auto matches = [text](TextPattern& pattern) { return pattern.Matches(text); };
  if (!patterns.empty() && std::none_of(patterns.begin(), patterns.end(), matches)) return false;
  return std::none_of(antiPatterns.begin(), antiPatterns.end(), matches);
}

bool MessageSelection::Wants(const LogMessageView& message) const {
  if (types && (message.Type() >= kMessageTypes || ((*types >> message.Type()) & 1U) == 0)) return false;
  if (since || until) {
    const std::uint64_t key = message.Key();
    if ((since && key < *since) || (until && key > *until)) return false;
  }
  if ((!included.empty() || !excluded.empty()) && !WantsSource(message)) return false;
  return (patterns.empty() && antiPatterns.empty()) || WantsText(Decode(message.Text()));
}

}  // namespace TamLogCtl
