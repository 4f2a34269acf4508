#pragma once

// The parts that the formats share: a message with its decoded time, and functions that append one of its
// fields. They append to `out` and allocate nothing else. May be called from any thread.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/format/format_options.h"
#include "client/message/hex.h"
#include "client/message/log_message_view.h"
#include "client/message/time_text.h"

namespace TamLogClient {

struct MessageToFormat {
  LogMessageView view;
  TimeWords words{};
  bool realTime = true;
  std::optional<int> offset{};  // minutes ahead of UTC, where a zone is stated
  bool late = false;
  std::string_view host{};    // empty: unknown
  std::string_view cursor{};  // its text, where the options show it
};

inline constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

void AppendNumber(std::uint64_t value, std::string& out);
void AppendNumber(int value, std::string& out);

// Appends two hexadecimal digits per byte of an array of bytes.
template <typename Bytes>
void AppendHexOf(const Bytes& bytes, std::string& out) {
  AppendHex({reinterpret_cast<const char*>(&bytes[0]), sizeof(bytes)}, out);
}

// Appends the time as it was written, followed by its offset from UTC when that is known.
void AppendStamp(const MessageToFormat& message, const FormatOptions& options, char separator,
                 std::string& out);

// Appends any field except Source, Text and Host, which each format quotes in its own way; for those it
// appends nothing.
void AppendSimple(Field field, const MessageToFormat& message, const FormatOptions& options,
                  std::string& out);

// Appends `text` so that it is safe to show: control characters and bytes that cannot be read become \n or
// \xNN.
void AppendShown(std::string_view text, const TextEncoding& encoding, std::string& out);

// Appends `text` as UTF-8, control characters unchanged. Returns false when bytes could not be read and were
// replaced by U+FFFD.
bool AppendAsUtf8(std::string_view text, const TextEncoding& encoding, std::string& out);

// Returns whether AppendAsUtf8 and AppendShown append exactly the bytes of the text.
bool IsSameAsUtf8(std::string_view text, const TextEncoding& encoding);
bool IsSameShown(std::string_view text, const TextEncoding& encoding);

// One function per format, or per pair of similar formats. Each appends the whole message.
void AppendLine(const MessageToFormat& message, const FormatOptions& options,
                std::string& out);  // short, full
void AppendCat(const LogMessageView& message, const FormatOptions& options, std::string& out);
void AppendTemplate(const MessageToFormat& message, const FormatOptions& options, std::string& out);
void AppendJsonObject(const MessageToFormat& message, const FormatOptions& options, std::string& out);
void AppendCsvHead(const FormatOptions& options, std::string& out);
void AppendCsvRow(const MessageToFormat& message, const FormatOptions& options, std::string& out);
void AppendTsvRow(const MessageToFormat& message, const FormatOptions& options, std::string& out);
void AppendExportEntry(const MessageToFormat& message, const FormatOptions& options, std::string& out);
void AppendSyslogLine(const MessageToFormat& message, const FormatOptions& options, std::string& out);

}  // namespace TamLogClient
