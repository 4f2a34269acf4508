#include <gtest/gtest.h>
#include <tamlog.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <tamlog.hpp>
#include <vector>

#include "client/c/c_interface.h"
#include "tests/client/c/header_test.h"
#include "tests/support/files.h"
#include "tests/support/log_bytes.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"

namespace {

using TamLogTest::MakeBody;
using TamLogTest::RingModel;

// A log file of 2026-01-01 with one message a second, "0", "1", ...
class CInterfaceTest : public testing::Test {
 protected:
  CInterfaceTest() : model(8) {}
  std::string Write(int messages) {
    for (int i = 0; i < messages; ++i) model.Submit(MakeBody(1000 * i, std::to_string(i), "Test", 2));
    model.Flush();
    return WriteSnapshot(model.Snapshot());
  }
  std::string WriteSnapshot(const TamLogClient::LogSnapshot& snapshot) {
    const std::string path = scratch.File("log" + std::to_string(files++) + ".dat");
    TestSupport::WriteBytes(path, TestSupport::LogFileBytes(snapshot.header, snapshot.slots));
    return path;
  }

  RingModel model;
  TestSupport::TempDir scratch;
  int files = 0;
};

// Programs in the field carry these numbers: a change here breaks them.
TEST_F(CInterfaceTest, StructuresKeepTheirLayout) {
  EXPECT_EQ(sizeof(tamlog_time), 16U);
  EXPECT_EQ(sizeof(tamlog_message), 576U);
  EXPECT_EQ(offsetof(tamlog_message, source), 56U);
  EXPECT_EQ(offsetof(tamlog_message, text), 316U);
  EXPECT_EQ(sizeof(tamlog_entry), 72U);
  EXPECT_EQ(sizeof(tamlog_client_options), 24U);
  EXPECT_EQ(sizeof(tamlog_settings), 20U);
  EXPECT_EQ(sizeof(tamlog_filter), 136U);
  EXPECT_EQ(sizeof(tamlog_sender_options), 56U);
  EXPECT_EQ(sizeof(tamlog_sender_counters), 104U);
  EXPECT_EQ(sizeof(tamlog_reader_options), 32U);
  EXPECT_EQ(sizeof(tamlog_item), 600U);
  EXPECT_EQ(sizeof(tamlog_log_info), 48U);
  EXPECT_EQ(tamlog_test_size(0), sizeof(tamlog_message));
  EXPECT_EQ(tamlog_test_size(1), sizeof(tamlog_entry));
  EXPECT_EQ(tamlog_test_size(2), sizeof(tamlog_item));
  EXPECT_EQ(tamlog_test_text_offset(), offsetof(tamlog_message, text));
  EXPECT_EQ(tamlog_test_init(), 1);
}

TEST_F(CInterfaceTest, VersionsOfHeaderLibraryAndProjectAgree) {
  EXPECT_EQ(tamlog_version(), static_cast<std::uint32_t>(TAMLOG_VERSION));
  EXPECT_EQ(tamlog_abi(), static_cast<std::uint32_t>(TAMLOG_ABI));
  EXPECT_EQ(std::to_string(TAMLOG_VERSION_MAJOR) + "." + std::to_string(TAMLOG_VERSION_MINOR) + "." +
                std::to_string(TAMLOG_VERSION_PATCH),
            TAMLOG_PROJECT_VERSION);
  EXPECT_EQ(TAMLOG_ABI, TAMLOG_PROJECT_ABI);
}

TEST_F(CInterfaceTest, EveryStatusHasACodeAndATextOfItsOwn) {
  std::set<std::string> texts;
  for (tamlog_status status = TAMLOG_OK; status <= TAMLOG_FOREIGN_EVENTS; ++status) {
    const std::string text = tamlog_status_text(status);
    EXPECT_NE(text, "unknown status") << status;
    EXPECT_TRUE(texts.insert(text).second) << text;
  }
  EXPECT_STREQ(tamlog_status_text(-1), "unknown status");
  EXPECT_STREQ(tamlog_status_text(TAMLOG_FOREIGN_EVENTS + 1), "unknown status");
  std::set<tamlog_status> codes;
  for (int value = 0; value <= static_cast<int>(TamLogClient::Status::SystemError); ++value) {
    codes.insert(TamLogClient::CodeOf(static_cast<TamLogClient::Status>(value)));
  }
  // Since the first version a directory has the code of a missing file. A log that changes faster than it can
  // be copied has the code of a time-out. The interface has no code for an interruption.
  EXPECT_EQ(TamLogClient::CodeOf(TamLogClient::Status::NotAFile), TAMLOG_NOT_FOUND);
  EXPECT_EQ(TamLogClient::CodeOf(TamLogClient::Status::Interrupted), TAMLOG_SYSTEM_ERROR);
  EXPECT_EQ(TamLogClient::CodeOf(TamLogClient::Status::Unsteady), TAMLOG_TIMED_OUT);
  EXPECT_EQ(codes.size(), static_cast<std::size_t>(TamLogClient::Status::SystemError) + 1 - 3);
  EXPECT_EQ(codes.count(TAMLOG_INTERNAL), 0U);
}

TEST_F(CInterfaceTest, FileIsReadOldestFirst) {
  const std::string path = Write(11);
  tamlog_reader* reader = nullptr;
  ASSERT_EQ(tamlog_reader_open_file(path.c_str(), &reader), TAMLOG_OK);
  ASSERT_EQ(tamlog_reader_count(reader), 8U);
  tamlog_message message;
  TAMLOG_INIT(&message);
  ASSERT_EQ(tamlog_reader_get_message(reader, 0, &message), TAMLOG_OK);
  EXPECT_STREQ(message.text, "3");
  EXPECT_STREQ(message.source, "Test");
  EXPECT_EQ(message.text_length, 1U);
  EXPECT_EQ(message.source_length, 4U);
  EXPECT_EQ(message.type, 2U);
  EXPECT_EQ(message.flags, 0U);
  EXPECT_EQ(message.time.second, 3);
  EXPECT_EQ(tamlog_time_is_real(&message.time), 1);
  ASSERT_EQ(tamlog_reader_get_message(reader, 7, &message), TAMLOG_OK);
  EXPECT_STREQ(message.text, "10");
  EXPECT_EQ(tamlog_reader_get_message(reader, 8, &message), TAMLOG_END);
  tamlog_log_info info;
  TAMLOG_INIT(&info);
  ASSERT_EQ(tamlog_reader_get_info(reader, &info), TAMLOG_OK);
  EXPECT_EQ(info.message_count, 8U);
  EXPECT_EQ(info.capacity, 8U);
  EXPECT_EQ(info.damaged, 0U);
  EXPECT_STREQ(tamlog_reader_remark(reader), "");
  tamlog_reader_close(reader);
}

TEST_F(CInterfaceTest, NextReturnsTheFileAndThenTheEnd) {
  auto reader = tamlog::Reader::File(Write(3));
  for (const char* text : {"0", "1", "2"}) {
    const auto item = reader.Next(0);
    ASSERT_TRUE(item);
    EXPECT_EQ(item->kind, tamlog::ItemKind::Message);
    EXPECT_EQ(item->message.Text(), text);
    EXPECT_FALSE(reader.Ended());
  }
  EXPECT_FALSE(reader.Next(0));
  EXPECT_TRUE(reader.Ended());
  reader.SeekOldest();
  EXPECT_EQ(reader.Next(0)->message.Text(), "0");
}

TEST_F(CInterfaceTest, CursorSurvivesACopyOfTheLogWithMoreMessages) {
  const std::string before = Write(3);
  auto reader = tamlog::Reader::File(before);
  EXPECT_THROW(reader.LastCursor(), tamlog::Error);
  reader.Next(0);
  reader.Next(0);
  const std::string cursor = reader.LastCursor();
  EXPECT_EQ(cursor, reader.CursorAt(1));
  EXPECT_LT(cursor.size(), 128U);
  model.Submit(MakeBody(500, "late"));
  model.Submit(MakeBody(60000, "new"));
  model.Flush();
  auto later = tamlog::Reader::File(WriteSnapshot(model.Snapshot()));
  EXPECT_TRUE(later.Test(cursor));
  EXPECT_TRUE(later.Seek(cursor));
  EXPECT_EQ(later.Next(0)->message.Text(), "2");
  EXPECT_EQ(later.Next(0)->message.Text(), "new");
  EXPECT_FALSE(later.Next(0));
  for (int i = 0; i < 8; ++i) model.Submit(MakeBody(100000 + i, "flood"));
  model.Flush();
  auto flooded = tamlog::Reader::File(WriteSnapshot(model.Snapshot()));
  EXPECT_FALSE(flooded.Test(cursor));
  EXPECT_FALSE(flooded.Seek(cursor));
  EXPECT_EQ(flooded.Next(0)->message.Text(), "flood");
  EXPECT_THROW(flooded.Seek("nonsense"), tamlog::Error);
  EXPECT_THROW(flooded.Test("nonsense"), tamlog::Error);
}

TEST_F(CInterfaceTest, SnapshotReadsTheFileAgainWithoutMovingNext) {
  const std::string path = Write(3);
  auto reader = tamlog::Reader::File(path);
  EXPECT_EQ(reader.Next(0)->message.Text(), "0");
  model.Submit(MakeBody(70000, "new"));
  model.Flush();
  std::filesystem::rename(WriteSnapshot(model.Snapshot()), path);
  reader.Snapshot();
  EXPECT_EQ(reader.Count(), 4U);
  EXPECT_EQ(reader.At(3).Text(), "new");
  EXPECT_EQ(reader.Next(0)->message.Text(), "1");
  std::filesystem::remove(path);
  EXPECT_THROW(reader.Snapshot(), tamlog::Error);
}

TEST_F(CInterfaceTest, DamagedFileIsReadAsFarAsItGoes) {
  Write(4);
  auto snapshot = model.Snapshot();
  snapshot.slots[1].body.type = 77;
  std::memset(snapshot.slots[2].body.text, 'x', kTextSize);
  auto reader = tamlog::Reader::File(WriteSnapshot(snapshot));
  EXPECT_TRUE(reader.Damaged());
  EXPECT_EQ(reader.Remark(), "2 messages break a rule of the format");
  EXPECT_EQ(reader.Info().damaged, 2U);
  const auto messages = reader.Messages();
  ASSERT_EQ(messages.size(), 4U);
  EXPECT_FALSE(messages[0].Damaged());
  EXPECT_TRUE(messages[1].Damaged());
  EXPECT_EQ(messages[1].Type(), 77U);
  EXPECT_TRUE(messages[2].Damaged());
  EXPECT_EQ(messages[2].Text(), std::string(257, 'x'));
  EXPECT_EQ(std::strlen(messages[2].Raw().text), 257U);
  snapshot.slots.resize(2);
  auto cut = tamlog::Reader::File(WriteSnapshot(snapshot));
  EXPECT_TRUE(cut.Damaged());
  EXPECT_EQ(cut.Count(), 2U);
}

TEST_F(CInterfaceTest, FileThatIsNotThereHasItsOwnStatus) {
  tamlog_reader* reader = nullptr;
  EXPECT_EQ(tamlog_reader_open_file(scratch.File("none").c_str(), &reader), TAMLOG_NOT_FOUND);
  EXPECT_EQ(tamlog_reader_open_file(scratch.File(".").c_str(), &reader), TAMLOG_NOT_FOUND);
  EXPECT_EQ(reader, nullptr);
  try {
    tamlog::Reader::File("none");
    FAIL();
  } catch (const tamlog::Error& error) {
    EXPECT_EQ(error.Code(), TAMLOG_NOT_FOUND);
    EXPECT_STREQ(error.what(), "none: not found");
  }
}

TEST_F(CInterfaceTest, BufferThatIsTooSmallIsNotWrittenAndTheLengthIsReported) {
  const auto message = tamlog::Reader::File(Write(1)).At(0);
  const std::string line = message.ToLine();
  EXPECT_EQ(line, "2026-01-01 00:00:00.000 T2 Test: 0\n");
  char buffer[64] = "untouched";
  std::uint64_t length = 0;
  EXPECT_EQ(tamlog_format(&message.Raw(), 0, 0, buffer, line.size(), &length), TAMLOG_TOO_SMALL);
  EXPECT_EQ(length, line.size());
  EXPECT_STREQ(buffer, "untouched");
  EXPECT_EQ(tamlog_format(&message.Raw(), 0, 0, nullptr, 0, nullptr), TAMLOG_TOO_SMALL);
  EXPECT_EQ(tamlog_format(&message.Raw(), 0, 0, buffer, line.size() + 1, nullptr), TAMLOG_OK);
  EXPECT_EQ(buffer, line);
  EXPECT_EQ(tamlog_format(&message.Raw(), 6, 0, buffer, sizeof(buffer), nullptr), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_format(&message.Raw(), 0, 8, buffer, sizeof(buffer), nullptr), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(message.ToLine(tamlog::Format::Cat), "0\n");
  EXPECT_NE(message.ToLine(tamlog::Format::Json).find("\"source\":\"Test\""), std::string::npos);
}

TEST_F(CInterfaceTest, StructuresOfOtherVersionsAreTaken) {
  const auto message = tamlog::Reader::File(Write(1)).At(0);
  struct Newer {
    tamlog_message known;
    std::uint64_t more;
  } newer{message.Raw(), 0};
  newer.known.size = sizeof(newer);
  char buffer[64];
  const auto* given = &newer.known;
  EXPECT_EQ(tamlog_format(given, 0, 0, buffer, sizeof(buffer), nullptr), TAMLOG_OK);
  // A newer program requests something that this library does not know.
  newer.more = 1;
  EXPECT_EQ(tamlog_format(given, 0, 0, buffer, sizeof(buffer), nullptr), TAMLOG_BAD_ARGUMENT);
  newer.known.size = 4;
  EXPECT_EQ(tamlog_format(given, 0, 0, buffer, sizeof(buffer), nullptr), TAMLOG_BAD_ARGUMENT);
  // Members that only a newer program knows become 0.
  newer.known.size = sizeof(newer);
  tamlog_reader* reader = nullptr;
  ASSERT_EQ(tamlog_reader_open_file(Write(1).c_str(), &reader), TAMLOG_OK);
  EXPECT_EQ(tamlog_reader_get_message(reader, 0, &newer.known), TAMLOG_OK);
  EXPECT_EQ(newer.known.size, sizeof(newer));
  EXPECT_EQ(newer.more, 0U);
  tamlog_reader_close(reader);
}

// Any user can send such messages. Counting the twins again for each message would take minutes.
TEST_F(CInterfaceTest, CursorsOfALogWhoseMessagesHaveOneTimeTakeAboutTheOrdinaryWork) {
  constexpr std::uint32_t kMessages = 20000;
  const auto secondsFor = [&](int step) {
    RingModel log(kMessages);
    for (std::uint32_t i = 0; i < kMessages; ++i)
      log.Submit(MakeBody(step * static_cast<int>(i), std::to_string(i / 2)));
    log.Flush();
    tamlog_reader* reader = nullptr;
    EXPECT_EQ(tamlog_reader_open_file(WriteSnapshot(log.Snapshot()).c_str(), &reader), TAMLOG_OK);
    const auto start = std::chrono::steady_clock::now();
    std::set<std::string> cursors;
    tamlog_item item;
    TAMLOG_INIT(&item);
    for (std::uint32_t i = 0; i < kMessages; ++i) {
      char byIndex[128];
      char byNext[128];
      EXPECT_EQ(tamlog_reader_get_cursor(reader, i, byIndex, sizeof(byIndex), nullptr), TAMLOG_OK);
      EXPECT_EQ(tamlog_reader_next(reader, 0, &item), TAMLOG_OK);
      EXPECT_EQ(tamlog_reader_last_cursor(reader, byNext, sizeof(byNext), nullptr), TAMLOG_OK);
      EXPECT_STREQ(byIndex, byNext);
      cursors.insert(byIndex);
    }
    EXPECT_EQ(cursors.size(), kMessages);
    tamlog_reader_close(reader);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  const double ordinary = secondsFor(10);
  EXPECT_LE(secondsFor(0), 4 * ordinary + 2);
}

TEST_F(CInterfaceTest, NothingIsDoneWithNullPointers) {
  tamlog_reader_close(nullptr);
  tamlog_client_close(nullptr);
  tamlog_sender_close(nullptr);
  tamlog_now(nullptr);
  EXPECT_EQ(tamlog_reader_count(nullptr), 0U);
  EXPECT_STREQ(tamlog_reader_remark(nullptr), "");
  EXPECT_EQ(tamlog_time_is_real(nullptr), 0);
  tamlog_message message;
  TAMLOG_INIT(&message);
  tamlog_item item;
  TAMLOG_INIT(&item);
  tamlog_log_info info;
  TAMLOG_INIT(&info);
  std::int32_t change = 0;
  tamlog_reader* reader = nullptr;
  char buffer[8];
  EXPECT_EQ(tamlog_reader_open_file(nullptr, &reader), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_open_file("x", nullptr), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_snapshot(nullptr, 0), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_get_message(nullptr, 0, &message), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_get_info(nullptr, &info), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_next(nullptr, 0, &item), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_wait(nullptr, 0, &change), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_seek(nullptr, nullptr), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_test_cursor(nullptr, "x"), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_get_cursor(nullptr, 0, buffer, 8, nullptr), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_last_cursor(nullptr, buffer, 8, nullptr), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_reader_with_view(nullptr, 0, nullptr, nullptr), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_format(nullptr, 0, 0, buffer, 8, nullptr), TAMLOG_BAD_ARGUMENT);
}

TEST_F(CInterfaceTest, TimesAreOrderedAndJudged) {
  const tamlog_time early{2026, 1, 31, 23, 59, 59, 999, 0};
  const tamlog_time late{2026, 2, 1, 0, 0, 0, 0, 0};
  const tamlog_time impossible{2026, 13, 1, 0, 0, 0, 0, 0};
  EXPECT_LT(tamlog_time_key(&early), tamlog_time_key(&late));
  EXPECT_EQ(tamlog_time_is_real(&impossible), 0);
  const tamlog_time now = tamlog::Now();
  EXPECT_EQ(tamlog_time_is_real(&now), 1);
  using namespace std::chrono_literals;
  const std::chrono::local_time<std::chrono::milliseconds> point =
      std::chrono::local_days(std::chrono::year(2026) / 11 / 21) + 8h + 2s + 125ms;
  const tamlog_time made = tamlog::ToTime(point);
  const tamlog_time expected{2026, 11, 21, 8, 0, 2, 125, 0};
  EXPECT_EQ(std::memcmp(&made, &expected, sizeof(made)), 0);
}

#ifndef _WIN32
TEST_F(CInterfaceTest, WhatNeedsAServerSaysThatThereIsNone) {
  tamlog_client* client = nullptr;
  tamlog_sender* sender = nullptr;
  tamlog_reader* reader = nullptr;
  EXPECT_EQ(tamlog_client_open(nullptr, &client), TAMLOG_NOT_SUPPORTED);
  EXPECT_EQ(tamlog_sender_open(nullptr, &sender), TAMLOG_NOT_SUPPORTED);
  EXPECT_EQ(tamlog_reader_open_live(nullptr, &reader), TAMLOG_NOT_SUPPORTED);
  EXPECT_THROW(tamlog::Sender{}, tamlog::Error);
}
#endif

}  // namespace
