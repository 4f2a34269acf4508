#pragma once

// The bytes at a place of a file where a slot is expected, as far as they show what they are.

#include <cstdint>
#include <string_view>

#include "client/file/log_file_image.h"

namespace TamLogClient {

struct Seen {
  bool complete = false;  // inside the file
  bool isBlank = false;
  bool isMessage = false;
  bool isNamed = false;        // and its source is a name
  bool passes = false;         // a server accepts type and texts, whatever the time is
  bool isPadded = false;       // the padding is zeros, as a server writes it
  std::uint64_t sequence = 0;  // that the server assigned
};

// Returns what the slot's bytes from `offset` on look like.
Seen LookAt(const LogFileImage& image, std::uint64_t offset);

// Returns whether the numbers that the server assigned show that `next` is the slot after `here`. Senders
// have no influence on them. No server counts so far that 0 follows.
bool Continues(const Seen& here, const Seen& next);

// Returns whether there are bytes, and all of them are zeros.
bool IsZero(std::string_view bytes);

}  // namespace TamLogClient
