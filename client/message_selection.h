#pragma once

// Which messages a reader wants to see: by source, type, time and text.

#include <cstdint>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "client/log_message_view.h"

namespace TamLogClient {

// NAME or NAME:TYPES. The name is compared without case and may hold * for any characters; types are digits,
// lists and ranges: "0", "0,2", "1-3".
struct SourceTerm {
  std::string name;
  std::uint32_t types = 0xF;  // bit i: type i
};

std::optional<SourceTerm> ParseSourceTerm(std::string_view text);
std::optional<std::uint32_t> ParseTypes(std::string_view text);

// Not thread-safe while it is being set up; afterwards it may be asked from several threads.
class MessageSelection {
 public:
  void Include(SourceTerm term) { included.push_back(std::move(term)); }
  void Exclude(SourceTerm term) { excluded.push_back(std::move(term)); }
  void SetTypes(std::uint32_t mask) { types = mask; }
  void SetSince(std::uint64_t key) { since = key; }
  void SetUntil(std::uint64_t key) { until = key; }

  // Keeps messages whose text holds a match. Case is ignored when `ignoreCase` is set or when the pattern has
  // no upper-case letter. False for a pattern that is no regular expression.
  bool SetPattern(const std::string& text, bool fixed, bool ignoreCase);

  // Nothing was asked for: every message is wanted.
  bool Empty() const;

  bool Wants(const LogMessageView& message) const;

 private:
  bool MatchesPattern(std::string_view text) const;

  std::vector<SourceTerm> included;
  std::vector<SourceTerm> excluded;
  std::optional<std::uint32_t> types;
  std::optional<std::uint64_t> since;
  std::optional<std::uint64_t> until;
  std::optional<std::string> fixedPattern;
  std::optional<std::regex> pattern;
  bool foldCase = false;
};

}  // namespace TamLogClient
