#pragma once

// Which messages a reader wants to see: by source, type, time and text.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/message/log_message_view.h"
#include "client/message/text_encoding.h"
#include "tamlogctl/select/text_pattern.h"

namespace TamLogCtl {

// NAME or NAME:TYPES. The name is compared without case and may hold * for any characters; types are digits,
// lists and ranges: "0", "0,2", "1-3".
struct SourceTerm {
  std::string name;
  std::uint32_t types = 0xF;  // bit i: type i
};

// A colon belongs to the name when what follows it has other characters than digits, commas and dashes.
// Nothing for an empty name, and for what reads as types but are none ("Camera:9", "Camera:").
std::optional<SourceTerm> ParseSourceTerm(std::string_view text);
std::optional<std::uint32_t> ParseTypes(std::string_view text);

// A message is wanted when it fits everything that was asked for: one of the included sources, none of the
// excluded ones, the types, the times, one of the patterns, none of the anti-patterns.
//
// Belongs to one thread at a time, also while it is only asked.
class MessageSelection {
 public:
  void Include(SourceTerm term) { included.push_back(std::move(term)); }
  void Exclude(SourceTerm term) { excluded.push_back(std::move(term)); }
  void SetTypes(std::uint32_t mask) { types = mask; }
  void SetSince(std::uint64_t key) { since = key; }
  void SetUntil(std::uint64_t key) { until = key; }

  // Terms in lines: NAME[:TYPES] includes, !NAME[:TYPES] excludes; empty lines and lines that begin with #
  // say nothing; a backslash in front takes its meaning from a first # or !. False, with the number of the
  // line in `badLine`, for a line that is no term; those before it are then in effect.
  bool AddTerms(std::string_view lines, std::size_t& badLine);

  // Keeps messages whose text matches: one of the patterns, if there are any, and none of the anti-patterns.
  void AddPattern(TextPattern pattern) { patterns.push_back(std::move(pattern)); }
  void AddAntiPattern(TextPattern pattern) { antiPatterns.push_back(std::move(pattern)); }

  // For terms and expressions that are given in UTF-8 and go beyond ASCII: texts and names are read by this
  // encoding before they are compared; bytes that cannot be read stay as they are. Without it bytes are
  // compared with bytes.
  void SetEncoding(const TamLogClient::TextEncoding& chosen) { encoding = chosen; }

  // The least time key that is wanted, if there is one.
  const std::optional<std::uint64_t>& Since() const { return since; }

  // Nothing was asked for: every message is wanted.
  bool Empty() const;

  bool Wants(const TamLogClient::LogMessageView& message) const;

 private:
  bool WantsSource(const TamLogClient::LogMessageView& message) const;
  bool WantsText(std::string_view text) const;
  std::string_view Read(std::string_view bytes) const;

  std::vector<SourceTerm> included;
  std::vector<SourceTerm> excluded;
  std::optional<std::uint32_t> types;
  std::optional<std::uint64_t> since;
  std::optional<std::uint64_t> until;
  std::optional<TamLogClient::TextEncoding> encoding;
  mutable std::string decoded;  // by the last Read
  // What they learn while searching shows only in the speed.
  mutable std::vector<TextPattern> patterns;
  mutable std::vector<TextPattern> antiPatterns;
};

}  // namespace TamLogCtl
