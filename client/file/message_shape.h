#pragma once

// Distinguishes the bytes of a stored message from other bytes. The format has no checksum and no magic
// number: only a date, a type and two terminated texts in their places identify a message. The functions have
// no state and may be called from any thread.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "client/message/time_text.h"
#include "records/log_file_format.h"

namespace TamLogClient {

inline constexpr std::size_t kSlotSize = sizeof(LogMessage);
// The padding after the last message of a cut file may be missing.
inline constexpr std::size_t kNeededOfSlot = offsetof(LogMessage, padding);

// Returns whether the sender's 546 bytes are zeros, as in a slot that was never used.
bool IsBlank(const LogMessageBody& body);

// Returns whether source and text are terminated inside their fields.
bool HasEnds(const LogMessage& message);

// Returns whether the words are a date of the years 1601 to 9999, which a clock may show, and a time of day.
// Earlier years would let bytes read at a wrong offset pass for a time.
bool IsPlausibleTime(const TimeWords& words);

// Returns whether the message has what other bytes hardly ever have: a plausible time, a type, and two
// terminated texts. Messages of senders that set no time do not.
bool LooksLikeMessage(const LogMessage& message);

// Returns the first place from `from` up to, and without, `end` at which `bytes` look like a message;
// string_view::npos when there is none. The message may extend beyond `end`, not beyond the bytes.
std::size_t FindMessage(std::string_view bytes, std::size_t from, std::size_t end);

}  // namespace TamLogClient
