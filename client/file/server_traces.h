#pragma once

// What in the bytes of a file shows that a server wrote them: the header, the lock names, and the parts of a
// slot that senders do not choose.

#include <cstdint>
#include <string_view>

#include "client/file/log_file_image.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// The beginning of the lock names in a file that a server opened.
inline constexpr std::string_view kNamesBegin = "Global\\";

// Returns whether `header` has nothing in it that a server would not write.
bool HeaderIsGenuine(const LogFileHeader& header);

// Returns the header at `offset`; zeros when it is not complete.
LogFileHeader HeaderAt(const LogFileImage& image, std::uint64_t offset);

// Returns whether a server wrote header and lock names at `offset`, as far as the bytes can show that. The
// lock names are zeros in a log that no server ever opened.
bool HeadIsGenuine(const LogFileImage& image, std::uint64_t offset);

// Returns whether a log begins at `offset`: one with lock names, or one that ends with the file.
bool LogBeginsAt(const LogFileImage& image, std::uint64_t offset);

// Returns whether the file has the right size, and each slot of its ring holds a message with a date or the
// traces of a server: bytes that moved there by damage have neither. Then breaks lie among bytes that belong
// to no message, for example in what a clear left. Reads the whole ring.
bool RingIsPlain(const LogFileImage& image);

}  // namespace TamLogClient
