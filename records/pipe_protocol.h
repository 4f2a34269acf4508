#pragma once

// The requests and replies that travel over the server's pair of named pipes. docs/pipe_protocol.md explains
// the same bytes to authors of clients; change both together.
//
// Both records are 1028 bytes, little-endian; each is exactly one pipe message. Request and reply codes are
// two separate numberings that happen to overlap.

#include <cstddef>
#include <cstdint>

#include "records/log_file_format.h"

inline constexpr char kRequestPipeName[] = R"(\\.\pipe\TamLogServerPipe)";
inline constexpr char kReplyPipeSuffix[] = "Reply";

enum class RequestCode : std::uint32_t {
  GetFileMapName = 2,
  SubmitMessage = 3,
  Ping = 4,
  GetSettings = 5,
  SetSettings = 6,
  GetLogFile = 7,
  SetLogFile = 8,
  GetFilter = 9,
  ClearFilters = 10,
  AddFilter = 11,
  GetDefaultLogFile = 12,
  ClearLog = 13,
};

enum class ReplyCode : std::uint32_t {
  TooLong = 4,
  UnknownRequest = 5,
  Failed = 7,
  NoSuchFilter = 8,
  Done = 11,
  FileMapName = 12,
  Alive = 13,
  Settings = 14,
  Path = 15,
  Filter = 16,
};

// The transport forwards the codes of this range to the handler and answers all others itself. 14 is not a
// request but lies in the range; the handler answers it.
inline constexpr std::uint32_t kFirstHandledCode = 2;
inline constexpr std::uint32_t kLastHandledCode = 14;

inline constexpr std::size_t kPipeBodySize = 1024;
inline constexpr std::size_t kFilterTextSize = 128;  // including the terminating zero

struct SettingsBody {
  std::uint32_t maxMessage;      // messages
  std::uint32_t devicePollRate;  // milliseconds
  std::uint32_t typeFilter;      // bit i: messages of type i are kept
  std::uint32_t saveRate;        // seconds
};

struct FilterBody {
  char text[kFilterTextSize];
  std::uint32_t kind;  // request: not 0 = include; reply: exactly 1 = include, 0 = exclude
};

struct PipeRequest {
  std::uint32_t code;
  union {
    std::uint8_t bytes[kPipeBodySize];
    LogMessageBody message;
    SettingsBody settings;
    char path[kPipeBodySize];
    std::uint32_t index;
    FilterBody filter;
  };
};

struct PipeReply {
  std::uint32_t code;
  union {
    std::uint8_t bytes[kPipeBodySize];
    SettingsBody settings;
    char path[kPipeBodySize];
    FilterBody filter;
  };
};

static_assert(sizeof(PipeRequest) == 1028 && sizeof(PipeReply) == 1028);
static_assert(offsetof(PipeRequest, message) == 4 && offsetof(PipeRequest, path) == 4);
static_assert(offsetof(SettingsBody, typeFilter) == 8 && offsetof(SettingsBody, saveRate) == 12);
static_assert(offsetof(FilterBody, kind) == 128);
