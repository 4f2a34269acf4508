#pragma once

// Functions that the parts of the C interface (client/include/tamlog.h) share: copies of structures from and
// to callers that may be built with another version, status codes for results, and a barrier for exceptions.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

#include "client/include/tamlog.h"
#include "client/message/status.h"
#include "client/message/time_text.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// Returns the code of the C interface for a status.
tamlog_status CodeOf(Status status);

// Runs the body of an interface function. An exception becomes a status.
template <class Body>
tamlog_status Guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return TAMLOG_NO_MEMORY;
  } catch (...) {
    return TAMLOG_INTERNAL;
  }
}

// The sizes that a caller's structure may state. A caller built with a newer version states a larger size.
// All structures are still those of the first version, so no smaller size is valid.
template <class Structure>
bool IsValidSize(std::uint32_t size) {
  constexpr std::uint32_t kMost = 65536;  // bytes; a larger number is an uninitialised structure
  return size >= sizeof(Structure) && size <= kMost;
}

// Copies a caller's structure; a null pointer is a structure of zeros. Returns false when its size is not
// valid, or when a member that this version does not know is not 0: this library cannot do what it requests.
template <class Structure>
bool CopyIn(const Structure* given, Structure& copy) {
  std::memset(&copy, 0, sizeof(copy));
  if (given == nullptr) return true;
  std::uint32_t size = 0;
  std::memcpy(&size, given, sizeof(size));
  if (!IsValidSize<Structure>(size)) return false;
  std::memcpy(&copy, given, sizeof(copy));
  const auto* bytes = reinterpret_cast<const unsigned char*>(given);
  return std::all_of(bytes + sizeof(copy), bytes + size, [](unsigned char byte) { return byte == 0; });
}

// Returns whether a caller's structure can receive a result: its size is valid.
template <class Structure>
bool CanReceive(const Structure* wanted) {
  return wanted != nullptr && IsValidSize<Structure>(wanted->size);
}

// Copies a result into a structure that can receive it. Its size stays; members that this version does not
// know become 0.
template <class Structure>
void CopyOut(const Structure& result, Structure* wanted) {
  const std::uint32_t size = wanted->size;
  std::memset(static_cast<void*>(wanted), 0, size);
  std::memcpy(static_cast<void*>(wanted), &result, sizeof(result));
  wanted->size = size;
}

// Copies a text with its zero byte into a caller's buffer. Sets `length` (may be null) to the text's length
// without the zero byte, also when the buffer is too small; then nothing is copied.
tamlog_status CopyText(std::string_view text, char* buffer, std::uint64_t capacity, std::uint64_t* length);

TimeWords WordsOfTime(const tamlog_time& time);
tamlog_time TimeOfWords(const TimeWords& words);

// Fills `message` from a slot. `flags` are added to those that the slot itself has.
void FillMessage(const LogMessage& stored, std::uint32_t flags, tamlog_message& message);

// Return the texts of an entry, as views of the caller's memory.
std::string_view SourceOf(const tamlog_entry& entry);
std::string_view TextOf(const tamlog_entry& entry);

}  // namespace TamLogClient
