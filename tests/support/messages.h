#pragma once

// Builds messages for tests, distinguished by their text. Needs the records only.
//
//   Message("b", At(12, 1))                          of 2026-03-14, from "source", of type 0
//   From("Camera", OfType(3, Message("b")))

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>

#include "records/log_file_format.h"

namespace TestSupport {

struct Moment {
  std::int16_t hour = 0;
  std::int16_t minute = 0;
  std::int16_t second = 0;
  std::int16_t millisecond = 0;
};

inline Moment At(int hour, int minute, int second = 0, int millisecond = 0) {
  return {.hour = static_cast<std::int16_t>(hour),
          .minute = static_cast<std::int16_t>(minute),
          .second = static_cast<std::int16_t>(second),
          .millisecond = static_cast<std::int16_t>(millisecond)};
}

// Returns the time of day that is `millisecond` milliseconds after midnight.
inline Moment AtMillisecond(std::int32_t millisecond) {
  return At(millisecond / 3600000, millisecond / 60000 % 60, millisecond / 1000 % 60, millisecond % 1000);
}

// Fills the rest with zeros; a text that fills the field is unterminated.
template <std::size_t size>
void CopyText(char (&field)[size], const std::string& text) {
  std::fill(std::begin(field), std::end(field), '\0');
  std::copy_n(text.begin(), std::min(text.size(), size), std::begin(field));
}

// Leaves the eighth word unchanged.
inline void SetTime(LogMessageBody& body, int year, int month, int day, Moment at) {
  const int words[7] = {year, month, day, at.hour, at.minute, at.second, at.millisecond};
  std::transform(std::begin(words), std::end(words), std::begin(body.timestamp),
                 [](int word) { return static_cast<std::int16_t>(word); });
}

inline LogMessageBody Message(const std::string& text, Moment at = {}) {
  LogMessageBody body = {};
  SetTime(body, 2026, 3, 14, at);
  CopyText(body.source, "source");
  CopyText(body.text, text);
  return body;
}

inline LogMessageBody From(const std::string& source, LogMessageBody body) {
  CopyText(body.source, source);
  return body;
}

inline LogMessageBody OfType(std::uint32_t type, LogMessageBody body) {
  body.type = type;
  return body;
}

inline std::string TextOf(const LogMessageBody& body) {
  return {std::begin(body.text), std::find(std::begin(body.text), std::end(body.text), '\0')};
}

}  // namespace TestSupport
