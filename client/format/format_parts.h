#pragma once

// What the formats have in common: a message with what was found out about it, and the ways to append its
// parts. All of them append to `out` and allocate nothing else.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/format/format_options.h"
#include "client/message/log_message_view.h"
#include "client/message/time_text.h"

namespace TamLogClient {

struct MessageToFormat {
  LogMessageView view;
  TimeWords words{};
  bool realTime = true;
  std::optional<int> offset{};  // minutes ahead of UTC, where a zone is stated
  bool late = false;
};

void AppendNumber(std::uint64_t value, std::string& out);
void AppendNumber(int value, std::string& out);

// Two hexadecimal digits per byte of an array of bytes.
template <typename Bytes>
void AppendHexOf(const Bytes& bytes, std::string& out) {
  AppendHex({reinterpret_cast<const char*>(&bytes[0]), sizeof(bytes)}, out);
}

// The time as it was written, with the offset behind it where it is known.
void AppendStamp(const MessageToFormat& message, const FormatOptions& options, char separator,
                 std::string& out);

// Any field but the texts, which each format quotes in its own way: those append nothing.
void AppendSimple(Field field, const MessageToFormat& message, const FormatOptions& options,
                  std::string& out);

// Safe to show: control characters, and bytes that cannot be read, as \n or \xNN.
void AppendShown(std::string_view text, const TextEncoding& encoding, std::string& out);

// As UTF-8, control characters as they are; false when bytes could not be read and stand as U+FFFD.
bool AppendAsUtf8(std::string_view text, const TextEncoding& encoding, std::string& out);

// One function per format, or per pair of formats that are much alike. Each appends the whole message.
void AppendLine(const MessageToFormat& message, const FormatOptions& options,
                std::string& out);  // short, full
void AppendCat(const LogMessageView& message, const FormatOptions& options, std::string& out);
void AppendTemplate(const MessageToFormat& message, const FormatOptions& options, std::string& out);
void AppendJsonObject(const MessageToFormat& message, const FormatOptions& options, std::string& out);
void AppendCsvHead(const FormatOptions& options, std::string& out);
void AppendCsvRow(const MessageToFormat& message, const FormatOptions& options, std::string& out);
void AppendTsvRow(const MessageToFormat& message, const FormatOptions& options, std::string& out);
void AppendExportEntry(const MessageToFormat& message, std::string_view cursor, const FormatOptions& options,
                       std::string& out);
void AppendSyslogLine(const MessageToFormat& message, const FormatOptions& options, std::string& out);

}  // namespace TamLogClient
