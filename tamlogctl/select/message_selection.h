#pragma once

// Selects messages by source, type, time and text.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/format/message_fields.h"
#include "client/message/log_message_view.h"
#include "client/message/text_encoding.h"
#include "tamlogctl/select/text_pattern.h"

namespace TamLogCtl {

// NAME or NAME:TYPES. The name is compared without case; each * in it stands for any characters. Types are
// digits, lists and ranges: "0", "0,2", "1-3".
struct SourceTerm {
  std::string name;
  std::uint32_t types = 0xF;  // bit i: type i
};

// Returns whether the name matches one in which each * stands for any characters, without regard to case.
bool MatchesName(std::string_view name, std::string_view glob);

// Returns nothing for an empty name, and for types that do not exist ("Camera:9", "Camera:"). A colon belongs
// to the name if other characters than digits, commas and dashes follow it.
std::optional<SourceTerm> ParseSourceTerm(std::string_view text);

// Returns the mask of a list of types (bit i: type i); nothing if the list is malformed.
std::optional<std::uint32_t> ParseTypes(std::string_view text);

// The same for a list that may also have types as they are printed: T2, T1-T3, and their names without regard
// to case.
std::optional<std::uint32_t> ParseTypes(std::string_view text, const TamLogClient::TypeNames& names);

// Returns the mask of the types of a severity (0 to 7) or a worse one. A type whose name is no severity
// counts as informational, as in the formats.
std::uint32_t TypesOfSeverity(int severity, const TamLogClient::TypeNames& names);

// A message is wanted if it meets every condition that was set: one of the included sources, none of the
// excluded ones, the types, the times, one of the patterns, none of the anti-patterns.
//
// One thread at a time may use an object, even through const functions.
class MessageSelection {
 public:
  void Include(SourceTerm term) { included.push_back(std::move(term)); }
  void Exclude(SourceTerm term) { excluded.push_back(std::move(term)); }
  void SetTypes(std::uint32_t mask) { types = mask; }
  // Set the least and the greatest time key (TimeKey) that is wanted.
  void SetSince(std::uint64_t key) { since = key; }
  void SetUntil(std::uint64_t key) { until = key; }

  // Adds one term a line: NAME[:TYPES] includes, !NAME[:TYPES] excludes. Empty lines and lines that begin
  // with # are ignored; a backslash before a leading # or ! makes it part of the name. Returns false for a
  // malformed line, with its number (from 1) in `badLine`; the terms before it have then been added.
  bool AddTerms(std::string_view lines, std::size_t& badLine);

  // Add a pattern. A text has to match one of the patterns, if there are any, and none of the anti-patterns.
  void AddPattern(TextPattern pattern) { patterns.push_back(std::move(pattern)); }
  void AddAntiPattern(TextPattern pattern) { antiPatterns.push_back(std::move(pattern)); }

  // Decodes names and texts of messages from this encoding to UTF-8 before they are compared; bytes that
  // cannot be decoded stay as they are. Needed for names and patterns beyond ASCII; without it bytes are
  // compared.
  void SetEncoding(const TamLogClient::TextEncoding& chosen) { encoding = chosen; }

  const std::optional<std::uint64_t>& Since() const { return since; }

  // Returns whether no condition was set: every message is wanted.
  bool Empty() const;

  bool Wants(const TamLogClient::LogMessageView& message) const;

 private:
  bool WantsSource(const TamLogClient::LogMessageView& message) const;
  bool WantsText(std::string_view text) const;
  std::string_view Decode(std::string_view bytes) const;

  std::vector<SourceTerm> included;
  std::vector<SourceTerm> excluded;
  std::optional<std::uint32_t> types;
  std::optional<std::uint64_t> since;
  std::optional<std::uint64_t> until;
  std::optional<TamLogClient::TextEncoding> encoding;
  mutable std::string decoded;  // by the last Decode
  // Searching fills their caches, which changes nothing but the speed.
  mutable std::vector<TextPattern> patterns;
  mutable std::vector<TextPattern> antiPatterns;
};

}  // namespace TamLogCtl
