#pragma once

// Messages for tests, identified by their text.
//
//   Message("b", At(12, 1))                          from "source", of type 0
//   From("Camera", Message("b", At(12, 1)))

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>

#include "records/log_file_format.h"

namespace StoreTest {

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

template <std::size_t size>
void CopyText(char (&field)[size], const std::string& text) {
  std::fill(std::begin(field), std::end(field), '\0');
  std::copy_n(text.begin(), std::min(text.size(), size), std::begin(field));
}

inline LogMessageBody Message(const std::string& text, Moment at = {}) {
  LogMessageBody body = {};
  body.timestamp[0] = 2026;
  body.timestamp[1] = 3;
  body.timestamp[2] = 14;
  body.timestamp[3] = at.hour;
  body.timestamp[4] = at.minute;
  body.timestamp[5] = at.second;
  body.timestamp[6] = at.millisecond;
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

}  // namespace StoreTest
