#include "client/c/c_interface.h"

#include <string>
#include <utility>

#include "client/format/message_formatter.h"
#include "client/format/tsv_text.h"
#include "client/message/local_time.h"
#include "client/message/log_message_view.h"

namespace TamLogClient {

tamlog_status CodeOf(Status status) {
  switch (status) {
    case Status::Ok:
      return TAMLOG_OK;
    case Status::NotRunning:
      return TAMLOG_NOT_RUNNING;
    case Status::AccessDenied:
      return TAMLOG_ACCESS_DENIED;
    case Status::TimedOut:
    case Status::Unsteady:  // version 1 of the interface has one code for both
      return TAMLOG_TIMED_OUT;
    case Status::Stuck:
      return TAMLOG_STUCK;
    case Status::Refused:
      return TAMLOG_REFUSED;
    case Status::NoSuchFilter:
      return TAMLOG_NO_SUCH_FILTER;
    case Status::BadValue:
      return TAMLOG_BAD_VALUE;
    case Status::TooLong:
      return TAMLOG_TOO_LONG;
    case Status::Disconnected:
      return TAMLOG_DISCONNECTED;
    case Status::Damaged:
      return TAMLOG_DAMAGED;
    case Status::NotALog:
      return TAMLOG_NOT_A_LOG;
    case Status::InPage:
      return TAMLOG_IN_PAGE;
    case Status::NotFound:
    case Status::NotAFile:  // version 1 of the interface has no code of its own for a directory
      return TAMLOG_NOT_FOUND;
    case Status::Exists:
      return TAMLOG_EXISTS;
    case Status::NotSupported:
      return TAMLOG_NOT_SUPPORTED;
    case Status::ForeignEvents:
      return TAMLOG_FOREIGN_EVENTS;
    case Status::Interrupted:  // no function of the interface can be interrupted
    case Status::SystemError:
      return TAMLOG_SYSTEM_ERROR;
  }
  return TAMLOG_INTERNAL;
}

tamlog_status CopyText(std::string_view text, char* buffer, std::uint64_t capacity, std::uint64_t* length) {
  if (length != nullptr) *length = text.size();
  if (capacity <= text.size()) return TAMLOG_TOO_SMALL;
  if (buffer == nullptr) return TAMLOG_BAD_ARGUMENT;
  text.copy(buffer, text.size());
  buffer[text.size()] = '\0';
  return TAMLOG_OK;
}

TimeWords WordsOfTime(const tamlog_time& time) {
  return {time.year, time.month, time.day, time.hour, time.minute, time.second, time.millisecond, time.spare};
}

tamlog_time TimeOfWords(const TimeWords& words) {
  return {words[0], words[1], words[2], words[3], words[4], words[5], words[6], words[7]};
}

void FillMessage(const LogMessage& stored, std::uint32_t flags, tamlog_message& message) {
  const LogMessageView view(stored);
  std::memset(&message, 0, sizeof(message));
  message.size = sizeof(message);
  message.type = view.Type();
  message.sequence = view.Sequence();
  message.time = TimeOfWords(WordsOf(stored.body));
  message.flags = flags;
  if (view.Damaged()) message.flags |= TAMLOG_MESSAGE_DAMAGED;
  message.source_length = static_cast<std::uint32_t>(view.Source().copy(message.source, kTextSize));
  message.text_length = static_cast<std::uint32_t>(view.Text().copy(message.text, kTextSize));
  std::memcpy(message.origin, stored.body.origin, sizeof(message.origin));
  std::memcpy(message.tail, stored.body.tail, sizeof(message.tail));
}

namespace {

std::string_view TextAt(const char* text, std::uint64_t length) {
  if (text == nullptr) return {};
  return length == 0 ? std::string_view(text) : std::string_view(text, length);
}

// Fills a slot from a caller's message, which need not be one that this library returned.
void StoreMessage(const tamlog_message& message, LogMessage& stored) {
  std::memset(&stored, 0, sizeof(stored));
  stored.sequence = message.sequence;
  SetTime(stored.body, WordsOfTime(message.time));
  stored.body.type = message.type;
  std::memcpy(stored.body.origin, message.origin, sizeof(stored.body.origin));
  std::memcpy(stored.body.tail, message.tail, sizeof(stored.body.tail));
  std::memcpy(stored.body.source, message.source, kTextSize);
  std::memcpy(stored.body.text, message.text, kTextSize);
}

bool IsKnown(std::int32_t format) {
  return format >= TAMLOG_FORMAT_SHORT && format <= TAMLOG_FORMAT_CSV;
}

Format FormatOf(std::int32_t format) {
  constexpr Format kFormats[] = {Format::Short, Format::Full, Format::Cat,
                                 Format::Json,  Format::Tsv,  Format::Csv};
  return kFormats[format];
}

}  // namespace

std::string_view SourceOf(const tamlog_entry& entry) {
  return TextAt(entry.source, entry.source_length);
}

std::string_view TextOf(const tamlog_entry& entry) {
  return TextAt(entry.text, entry.text_length);
}

}  // namespace TamLogClient

using TamLogClient::Guarded;

uint32_t TAMLOG_CALL tamlog_version(void) {
  return TAMLOG_VERSION;
}

uint32_t TAMLOG_CALL tamlog_abi(void) {
  return TAMLOG_ABI;
}

const char* TAMLOG_CALL tamlog_status_text(tamlog_status status) {
  using TamLogClient::Status;
  using TamLogClient::StatusText;
  switch (status) {
    case TAMLOG_NOT_FOUND:
      return "not found";
    case TAMLOG_BAD_ARGUMENT:
      return "an argument is not valid";
    case TAMLOG_TOO_SMALL:
      return "the buffer is too small";
    case TAMLOG_DROPPED:
      return "the queue is full, the message was dropped";
    case TAMLOG_CLOSED:
      return "the sender was finished";
    case TAMLOG_END:
      return "there is nothing more";
    case TAMLOG_NO_MEMORY:
      return "out of memory";
    case TAMLOG_INTERNAL:
      return "an error inside the library";
    case TAMLOG_EXISTS:
      return "the output already exists";
    case TAMLOG_OUTPUT_FAILED:
      return "the output cannot be written";
    case TAMLOG_SYSTEM_ERROR:
      return StatusText(Status::SystemError);
    default:
      break;
  }
  for (int value = 0; value <= static_cast<int>(Status::SystemError); ++value) {
    const auto known = static_cast<Status>(value);
    if (TamLogClient::CodeOf(known) == status) return StatusText(known);
  }
  return "unknown status";
}

void TAMLOG_CALL tamlog_now(tamlog_time* time) {
  if (time != nullptr) *time = TamLogClient::TimeOfWords(TamLogClient::LocalNow());
}

int32_t TAMLOG_CALL tamlog_time_is_real(const tamlog_time* time) {
  return time != nullptr && TamLogClient::IsRealTime(TamLogClient::WordsOfTime(*time)) ? 1 : 0;
}

uint64_t TAMLOG_CALL tamlog_time_key(const tamlog_time* time) {
  return time != nullptr ? TamLogClient::KeyOf(TamLogClient::WordsOfTime(*time)) : 0;
}

tamlog_status TAMLOG_CALL tamlog_format(const tamlog_message* message, int32_t format, uint32_t flags,
                                        char* buffer, uint64_t capacity, uint64_t* length) {
  constexpr std::uint32_t kFlags = TAMLOG_FORMAT_TERMINAL | TAMLOG_FORMAT_COLOR;
  tamlog_message given;
  if (message == nullptr || !TamLogClient::CopyIn(message, given) || !TamLogClient::IsKnown(format) ||
      (flags & ~kFlags) != 0) {
    return TAMLOG_BAD_ARGUMENT;
  }
  return Guarded([&] {
    LogMessage stored;
    TamLogClient::StoreMessage(given, stored);
    TamLogClient::FormatOptions options;
    options.format = TamLogClient::FormatOf(format);
    options.terminal = (flags & TAMLOG_FORMAT_TERMINAL) != 0;
    options.color = (flags & TAMLOG_FORMAT_COLOR) != 0;
    TamLogClient::MessageFormatter formatter(std::move(options));
    std::string line;
    formatter.Append(stored, (given.flags & TAMLOG_MESSAGE_LATE) != 0, line);
    return TamLogClient::CopyText(line, buffer, capacity, length);
  });
}
