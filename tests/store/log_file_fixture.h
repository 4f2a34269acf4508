#pragma once

// A server over a file in the test's own directory, as a small language:
//
//   Open();
//   Submit("a", At(12, 0));
//   Flush();
//   EXPECT_EQ(Newest(), (Texts{"a"}));
//
// The contents of the file are read from the file, not through the server.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "records/log_file_format.h"
#include "store/message_file_server.h"
#include "store/server_configuration.h"
#include "tests/store/messages.h"
#include "tests/store/test_reader.h"
#include "tests/support/files.h"
#include "tests/support/log_bytes.h"
#include "tests/support/temp_dir.h"
#include "util/exceptions.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace StoreTest {

using Texts = std::vector<std::string>;
using Sequences = std::vector<std::uint64_t>;

// The text of the exception of `action`, with all causes, one a line; empty when it throws none.
template <class Action>
std::string FailureOf(Action&& action) {
  try {
    action();
    return {};
  } catch (const TamLogUtil::Exceptions::ExceptionBase& failure) {
    return failure.Compose("\n");
  }
}

// The same without the causes and without the system's code and text.
template <class Action>
std::string SentenceOf(Action&& action) {
  const std::string failure = FailureOf(action);
  return failure.substr(0, std::min(failure.find('\n'), failure.find(" - Error code : ")));
}

class LogFile : public testing::Test {
 protected:
  LogFile() {
    configuration.maxMessage = 10;
    configuration.logFile = directory.File("Logs.dat");
    std::fill(std::begin(configuration.typeFilter), std::end(configuration.typeFilter), true);
  }

  void Open() { server->OpenFile(names.map, names.headerLock, names.readWait, names.writeWait); }
  void Close() { Close(TamLogUtil::Timeout::kForever); }
  void Close(std::uint32_t milliseconds) {
    TamLogUtil::Timeout timeout(milliseconds);
    server->CloseFile(timeout);
  }
  // Replaces the server by a new one over the same file, as after a start of the process.
  void Restart() {
    server.emplace(&configuration, &configLock);
    Open();
  }
  void SetCapacity(std::uint32_t maxMessage) { configuration.maxMessage = maxMessage; }

  void Submit(const LogMessageBody& body) { server->AddMessage(body); }
  void Submit(const std::string& text, Moment at) { Submit(Message(text, at)); }
  void Flush() { server->FlushWrites(); }
  void Clear() {
    const TamLogUtil::Mutex::Access access(configLock, TamLogUtil::Timeout::Infinite);
    server->ClearMessages();
  }

  std::string Bytes() const { return TestSupport::ReadBytes(configuration.logFile); }
  LogFileHeader Header() const { return TestSupport::HeaderOf(Bytes()); }
  std::string LockName(std::size_t index) const {
    const std::string field = Bytes().substr(kLockNamesOffset + index * kLockNameSize, kLockNameSize);
    return field.substr(0, field.find('\0'));
  }
  // All slots, valid or not, in their order.
  std::vector<LogMessage> AllSlots() const { return TestSupport::SlotsOf(Bytes()); }
  Texts Slots() const {
    Texts texts;
    for (const LogMessage& message : AllSlots()) texts.push_back(TextOf(message.body));
    return texts;
  }
  // The texts of the valid messages, newest first, as a reader walks them.
  std::vector<LogMessage> Messages() const {
    const LogFileHeader header = Header();
    const std::vector<LogMessage> slots = AllSlots();
    std::vector<LogMessage> messages;
    for (std::int32_t i = 0; i < header.messageCount; ++i) {
      const std::int32_t slot = (header.nextSlot - i - 1 + header.maxMessages) % header.maxMessages;
      messages.push_back(slots.at(static_cast<std::size_t>(slot)));
    }
    return messages;
  }
  Texts Newest() const {
    Texts texts;
    for (const LogMessage& message : Messages()) texts.push_back(TextOf(message.body));
    return texts;
  }
  Sequences Numbers() const {
    Sequences sequences;
    for (const LogMessage& message : Messages()) sequences.push_back(message.sequence);
    return sequences;
  }

  // Makes a file as an earlier server left it, with the messages in slots 0, 1, 2, ..., the last one the
  // newest.
  void MakeFile(std::int32_t maxMessages, const std::vector<LogMessageBody>& messages) const {
    LogFileHeader header = {};
    header.maxMessages = maxMessages;
    header.messageCount = static_cast<std::int32_t>(messages.size());
    header.nextSlot = maxMessages == 0 ? 0 : header.messageCount % maxMessages;
    header.changeCount = 40;
    header.rewriteCount = 50;
    header.nextSequence = messages.size();
    std::vector<LogMessage> slots(static_cast<std::size_t>(maxMessages));
    for (std::size_t i = 0; i < messages.size(); ++i) {
      slots.at(i) = {.sequence = i, .body = messages[i], .padding = {}};
    }
    TestSupport::WriteBytes(configuration.logFile, TestSupport::LogFileBytes(header, slots));
  }
  // Changes the file's header in place, with the file closed.
  template <class Change>
  void Damage(Change change) {
    std::string bytes = Bytes();
    LogFileHeader header = TestSupport::HeaderOf(bytes);
    change(header);
    std::memcpy(bytes.data(), &header, sizeof header);
    TestSupport::WriteBytes(configuration.logFile, bytes);
  }

  TestSupport::TempDir directory;
  ServerConfiguration configuration;
  TamLogUtil::Mutex configLock;
  ObjectNames names = ObjectNames::Of("file");
  std::optional<MessageFileServer> server{std::in_place, &configuration, &configLock};
};

}  // namespace StoreTest
