#pragma once

// What the parts of the C interface (client/include/tamlog.h) share: how structures of callers that were
// built with another version come in and go out, how results become status codes, and how exceptions stay
// inside.

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

tamlog_status CodeOf(Status status);

// Runs the body of an interface function; what it throws becomes a status.
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

// Copies a caller's structure. One that is shorter (an older program) is filled up with zeros; of one that is
// longer (a newer program) the rest has to be zeros, because this library cannot do what they would ask for.
// A null pointer gives zeros. `least` is the structure's size in its first version. False for nonsense.
template <class Structure>
bool TakeIn(const Structure* given, Structure& taken, std::size_t least = sizeof(Structure)) {
  std::memset(&taken, 0, sizeof(taken));
  if (given == nullptr) return true;
  std::uint32_t size = 0;
  std::memcpy(&size, given, sizeof(size));
  constexpr std::size_t kMost = 65536;
  if (size < least || size > kMost) return false;
  const auto* bytes = reinterpret_cast<const unsigned char*>(given);
  std::memcpy(&taken, bytes, std::min<std::size_t>(size, sizeof(taken)));
  return size <= sizeof(taken) ||
         std::all_of(bytes + sizeof(taken), bytes + size, [](unsigned char byte) { return byte == 0; });
}

// Whether a caller's structure for results says how long it is.
template <class Structure>
bool HasSize(const Structure* wanted, std::size_t least = sizeof(Structure)) {
  return wanted != nullptr && wanted->size >= least && wanted->size <= 65536;
}

// Copies a result into a caller's structure, as far as that reaches; its size stays.
template <class Structure>
void GiveOut(const Structure& result, Structure* wanted) {
  const std::uint32_t size = wanted->size;
  std::memset(static_cast<void*>(wanted), 0, size);
  std::memcpy(static_cast<void*>(wanted), &result, std::min<std::size_t>(size, sizeof(result)));
  wanted->size = size;
}

// Copies a text with its zero byte into a caller's buffer.
tamlog_status GiveText(std::string_view text, char* buffer, std::uint64_t capacity, std::uint64_t* length);

TimeWords WordsOfTime(const tamlog_time& time);
tamlog_time TimeOfWords(const TimeWords& words);

void FillMessage(const LogMessage& stored, std::uint32_t flags, tamlog_message& message);

// The texts of an entry; they live as long as the caller's.
std::string_view SourceOf(const tamlog_entry& entry);
std::string_view TextOf(const tamlog_entry& entry);

}  // namespace TamLogClient
