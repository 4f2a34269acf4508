// Compares conformance/log_layout.h, which other programs are built with, with the server's records.

#include "conformance/log_layout.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "records/log_file_format.h"
#include "records/pipe_protocol.h"

namespace {

struct Number {
  std::uint64_t stated;
  std::uint64_t ours;
};

std::uint64_t Plain(std::uint64_t number) {
  return number;
}
std::uint64_t Plain(RequestCode code) {
  return static_cast<std::uint32_t>(code);
}
std::uint64_t Plain(ReplyCode code) {
  return static_cast<std::uint32_t>(code);
}

#define STATED(name, ours) \
  {                        \
#name, {               \
      name, Plain(ours)    \
    }                      \
  }

const std::map<std::string, Number> kNumbers{
    STATED(TAMLOG_HEADER_OFFSET, 0),
    STATED(TAMLOG_HEADER_SIZE, sizeof(LogFileHeader)),
    STATED(TAMLOG_LOCK_NAMES_OFFSET, kLockNamesOffset),
    STATED(TAMLOG_LOCK_NAME_SIZE, kLockNameSize),
    STATED(TAMLOG_LOCK_NAMES, std::size(LockNames{}.name)),
    STATED(TAMLOG_SLOTS_OFFSET, kSlotsOffset),
    STATED(TAMLOG_SLOT_SIZE, sizeof(LogMessage)),
    STATED(TAMLOG_READ_COUNT, offsetof(LogFileHeader, readCount)),
    STATED(TAMLOG_SERVER_RUNNING, offsetof(LogFileHeader, serverRunning)),
    STATED(TAMLOG_MESSAGE_COUNT, offsetof(LogFileHeader, messageCount)),
    STATED(TAMLOG_MAX_MESSAGES, offsetof(LogFileHeader, maxMessages)),
    STATED(TAMLOG_NEXT_SLOT, offsetof(LogFileHeader, nextSlot)),
    STATED(TAMLOG_CHANGE_COUNT, offsetof(LogFileHeader, changeCount)),
    STATED(TAMLOG_REWRITE_COUNT, offsetof(LogFileHeader, rewriteCount)),
    STATED(TAMLOG_NEXT_SEQUENCE, offsetof(LogFileHeader, nextSequence)),
    STATED(TAMLOG_SLOT_SEQUENCE, offsetof(LogMessage, sequence)),
    STATED(TAMLOG_SLOT_BODY, offsetof(LogMessage, body)),
    STATED(TAMLOG_BODY_SIZE, sizeof(LogMessageBody)),
    STATED(TAMLOG_BODY_ORIGIN, offsetof(LogMessageBody, origin)),
    STATED(TAMLOG_ORIGIN_SIZE, sizeof(LogMessageBody::origin)),
    STATED(TAMLOG_BODY_TIMESTAMP, offsetof(LogMessageBody, timestamp)),
    STATED(TAMLOG_BODY_TYPE, offsetof(LogMessageBody, type)),
    STATED(TAMLOG_BODY_SOURCE, offsetof(LogMessageBody, source)),
    STATED(TAMLOG_BODY_TEXT, offsetof(LogMessageBody, text)),
    STATED(TAMLOG_TEXT_SIZE, kTextSize),
    STATED(TAMLOG_BODY_TAIL, offsetof(LogMessageBody, tail)),
    STATED(TAMLOG_TAIL_SIZE, sizeof(LogMessageBody::tail)),
    STATED(TAMLOG_TYPES, kMessageTypes),
    STATED(TAMLOG_RECORD_SIZE, sizeof(PipeRequest)),
    STATED(TAMLOG_RECORD_CODE, offsetof(PipeReply, code)),
    STATED(TAMLOG_RECORD_BODY, offsetof(PipeReply, bytes)),
    STATED(TAMLOG_RECORD_BODY_SIZE, kPipeBodySize),
    STATED(TAMLOG_RECORD_MESSAGE, offsetof(PipeRequest, message)),
    STATED(TAMLOG_RECORD_MAX_MESSAGE, offsetof(PipeReply, settings.maxMessage)),
    STATED(TAMLOG_RECORD_DEVICE_POLL_RATE, offsetof(PipeReply, settings.devicePollRate)),
    STATED(TAMLOG_RECORD_TYPE_FILTER, offsetof(PipeReply, settings.typeFilter)),
    STATED(TAMLOG_RECORD_SAVE_RATE, offsetof(PipeReply, settings.saveRate)),
    STATED(TAMLOG_RECORD_PATH, offsetof(PipeReply, path)),
    STATED(TAMLOG_RECORD_INDEX, offsetof(PipeRequest, index)),
    STATED(TAMLOG_RECORD_FILTER_TEXT, offsetof(PipeReply, filter.text)),
    STATED(TAMLOG_FILTER_TEXT_SIZE, kFilterTextSize),
    STATED(TAMLOG_RECORD_FILTER_KIND, offsetof(PipeReply, filter.kind)),
    STATED(TAMLOG_GET_FILE_MAP_NAME, RequestCode::GetFileMapName),
    STATED(TAMLOG_SUBMIT_MESSAGE, RequestCode::SubmitMessage),
    STATED(TAMLOG_PING, RequestCode::Ping),
    STATED(TAMLOG_GET_SETTINGS, RequestCode::GetSettings),
    STATED(TAMLOG_SET_SETTINGS, RequestCode::SetSettings),
    STATED(TAMLOG_GET_LOG_FILE, RequestCode::GetLogFile),
    STATED(TAMLOG_SET_LOG_FILE, RequestCode::SetLogFile),
    STATED(TAMLOG_GET_FILTER, RequestCode::GetFilter),
    STATED(TAMLOG_CLEAR_FILTERS, RequestCode::ClearFilters),
    STATED(TAMLOG_ADD_FILTER, RequestCode::AddFilter),
    STATED(TAMLOG_GET_DEFAULT_LOG_FILE, RequestCode::GetDefaultLogFile),
    STATED(TAMLOG_CLEAR_LOG, RequestCode::ClearLog),
    STATED(TAMLOG_REPLY_TOO_LONG, ReplyCode::TooLong),
    STATED(TAMLOG_REPLY_UNKNOWN_REQUEST, ReplyCode::UnknownRequest),
    STATED(TAMLOG_REPLY_FAILED, ReplyCode::Failed),
    STATED(TAMLOG_REPLY_NO_SUCH_FILTER, ReplyCode::NoSuchFilter),
    STATED(TAMLOG_REPLY_DONE, ReplyCode::Done),
    STATED(TAMLOG_REPLY_FILE_MAP_NAME, ReplyCode::FileMapName),
    STATED(TAMLOG_REPLY_ALIVE, ReplyCode::Alive),
    STATED(TAMLOG_REPLY_SETTINGS, ReplyCode::Settings),
    STATED(TAMLOG_REPLY_PATH, ReplyCode::Path),
    STATED(TAMLOG_REPLY_FILTER, ReplyCode::Filter),
};

const std::map<std::string, std::string> kNames{
    {"TAMLOG_REQUEST_PIPE", kRequestPipeName},
    {"TAMLOG_REPLY_PIPE", std::string(kRequestPipeName) + kReplyPipeSuffix},
    {"TAMLOG_FILE_MAP", kFileMapName},
    {"TAMLOG_HEADER_LOCK", kHeaderLockName},
    {"TAMLOG_READ_WAIT_EVENT", kReadWaitEventName},
    {"TAMLOG_WRITE_WAIT_EVENT", kWriteWaitEventName},
};

// The names that the header defines, in the file itself: a number without a comparison fails the test.
std::set<std::string> NamesInTheHeader() {
  std::ifstream header(TAMLOG_SOURCE "/conformance/log_layout.h");
  std::set<std::string> names;
  for (std::string word; header >> word;) {
    if (word == "#define" && header >> word && word != "TAMLOG_LOG_LAYOUT_H") names.insert(word);
  }
  return names;
}

TEST(LogLayout, StatesEveryNumberAsTheServerHasIt) {
  for (const auto& [name, number] : kNumbers) EXPECT_EQ(number.stated, number.ours) << name;
}

TEST(LogLayout, StatesEveryNameAsTheServerHasIt) {
  EXPECT_EQ(kNames.at("TAMLOG_REQUEST_PIPE"), TAMLOG_REQUEST_PIPE);
  EXPECT_EQ(kNames.at("TAMLOG_REPLY_PIPE"), TAMLOG_REPLY_PIPE);
  EXPECT_EQ(kNames.at("TAMLOG_FILE_MAP"), TAMLOG_FILE_MAP);
  EXPECT_EQ(kNames.at("TAMLOG_HEADER_LOCK"), TAMLOG_HEADER_LOCK);
  EXPECT_EQ(kNames.at("TAMLOG_READ_WAIT_EVENT"), TAMLOG_READ_WAIT_EVENT);
  EXPECT_EQ(kNames.at("TAMLOG_WRITE_WAIT_EVENT"), TAMLOG_WRITE_WAIT_EVENT);
}

TEST(LogLayout, HasNothingThatIsNotCompared) {
  std::set<std::string> compared;
  for (const auto& [name, number] : kNumbers) compared.insert(name);
  for (const auto& [name, text] : kNames) compared.insert(name);
  EXPECT_EQ(NamesInTheHeader(), compared);
}

}  // namespace
