// Verifying and repairing through the C interface and the C++ header.

#include <gtest/gtest.h>
#include <tamlog.h>

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <new>
#include <span>
#include <string>
#include <tamlog.hpp>
#include <vector>

#include "client/file/log_file_image.h"
#include "tests/client/c/header_test.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"

namespace {

using TamLogClient::LogFileImage;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

// A file of 8 slots with six messages "0" to "5", a second apart.
class CVerifyTest : public testing::Test {
 protected:
  CVerifyTest() {
    RingModel model(8);
    for (int i = 0; i < 6; ++i) model.Submit(MakeBody(1000 * i, std::to_string(i), "Test", 2));
    model.Flush();
    bytes = ImageOf(model.Snapshot());
    bytes[offsetof(LogFileHeader, serverRunning)] = 0;
  }

  void SetType(std::uint64_t slot, std::uint32_t type) {
    std::memcpy(bytes.data() + OffsetOfType(slot), &type, sizeof(type));
  }
  static std::uint64_t OffsetOfType(std::uint64_t slot) {
    return LogFileImage::OffsetOf(slot) + offsetof(LogMessage, body) + offsetof(LogMessageBody, type);
  }
  void BlankSlot(std::uint64_t slot) {
    std::memset(bytes.data() + LogFileImage::OffsetOf(slot), 0, sizeof(LogMessage));
  }
  std::string Write() {
    std::ofstream(damaged, std::ios::binary) << bytes;
    return damaged;
  }
  std::span<const std::byte> Bytes() const {
    return {reinterpret_cast<const std::byte*>(bytes.data()), bytes.size()};
  }
  static std::string Contents(const std::string& path) {
    std::string contents;
    EXPECT_EQ(TamLogClient::ReadFileBytes(path, contents), TamLogClient::Status::Ok);
    return contents;
  }
  static std::string TextsOf(const std::string& path) {
    std::string texts;
    for (const tamlog::Message& message : tamlog::Reader::File(path).Messages()) texts += message.Text();
    return texts;
  }
  // The code of the error that RepairFile throws.
  tamlog_status CodeOf(const std::string& path, const std::string& target,
                       const tamlog::RepairOptions& options = {}) const {
    try {
      tamlog::RepairFile(path, target, options);
    } catch (const tamlog::Error& error) {
      return error.Code();
    }
    return TAMLOG_OK;
  }

  TestSupport::TempDir scratch;
  std::string damaged = scratch.File("damaged.dat");
  std::string output = scratch.File("output.dat");
  std::string bytes;
};

TEST_F(CVerifyTest, StructuresKeepTheirLayout) {
  EXPECT_EQ(sizeof(tamlog_finding), 48U);
  EXPECT_EQ(sizeof(tamlog_verify_options), 32U);
  EXPECT_EQ(sizeof(tamlog_verify_result), 232U);
  EXPECT_EQ(sizeof(tamlog_repair_note), 48U);
  EXPECT_EQ(sizeof(tamlog_repair_options), 40U);
  EXPECT_EQ(sizeof(tamlog_repair_result), 80U);
  EXPECT_EQ(tamlog_test_size(3), sizeof(tamlog_finding));
  EXPECT_EQ(tamlog_test_size(4), sizeof(tamlog_verify_result));
  EXPECT_EQ(tamlog_test_size(5), sizeof(tamlog_repair_note));
  EXPECT_EQ(tamlog_test_size(6), sizeof(tamlog_repair_result));
}

TEST_F(CVerifyTest, RulesHaveTheNamesOfReports) {
  EXPECT_STREQ(tamlog_rule_name(TAMLOG_RULE_NEWEST_FIRST), "newest-first");
  EXPECT_STREQ(tamlog_rule_name(TAMLOG_RULE_REVERSED_BLOCK), "reversed-block");
  EXPECT_STREQ(tamlog_rule_name(TAMLOG_RULE_EMPTY_FILE), "empty-file");
  EXPECT_STREQ(tamlog_rule_name(-1), "unknown-rule");
  EXPECT_STREQ(tamlog_rule_name(TAMLOG_RULES), "unknown-rule");
}

TEST_F(CVerifyTest, SoundFileAndImageHaveNothingToTell) {
  const auto file = tamlog::VerifyFile(Write());
  EXPECT_FALSE(file.Damaged());
  EXPECT_TRUE(file.Accepted());
  EXPECT_TRUE(file.findings.empty());
  EXPECT_EQ(file.counts.file_bytes, bytes.size());
  EXPECT_EQ(file.counts.slots, 8U);
  const auto image = tamlog::VerifyImage(Bytes());
  EXPECT_EQ(std::memcmp(&image.counts, &file.counts, sizeof(file.counts)), 0);
}

TEST_F(CVerifyTest, FindingSaysRuleSlotOffsetAndValues) {
  SetType(3, 77);
  const auto report = tamlog::VerifyImage(Bytes());
  EXPECT_TRUE(report.Damaged());
  EXPECT_FALSE(report.Accepted());
  ASSERT_EQ(report.findings.size(), 1U);
  const tamlog::Finding& finding = report.findings[0];
  EXPECT_EQ(finding.rule, TAMLOG_RULE_KNOWN_TYPE);
  EXPECT_EQ(finding.name, "known-type");
  EXPECT_TRUE(finding.damage);
  EXPECT_EQ(finding.slot, 3U);
  EXPECT_EQ(finding.offset, OffsetOfType(3));
  EXPECT_NE(finding.seen.find("77"), std::string::npos) << finding.seen;
  EXPECT_FALSE(finding.allowed.empty());
  EXPECT_EQ(report.Count(TAMLOG_RULE_KNOWN_TYPE), 1U);
  EXPECT_EQ(report.Count(TAMLOG_MOST_RULES), 0U);
}

TEST_F(CVerifyTest, BrokenHeaderIsAboutTheFileAndARemarkIsNoDamage) {
  bytes[offsetof(LogFileHeader, readCount)] = 1;
  auto report = tamlog::VerifyImage(Bytes());
  EXPECT_FALSE(report.Damaged());
  EXPECT_TRUE(report.Accepted());
  ASSERT_EQ(report.findings.size(), 1U);
  EXPECT_FALSE(report.findings[0].damage);
  EXPECT_EQ(report.findings[0].rule, TAMLOG_RULE_READERS_INSIDE);
  EXPECT_TRUE(tamlog::VerifyImage(Bytes(), 0, true).findings.empty())
      << "a running server's log has readers inside";
  EXPECT_TRUE(tamlog::VerifyFile(Write(), 0, true).findings.empty());
  bytes[offsetof(LogFileHeader, messageCount) + 3] = '\x80';
  report = tamlog::VerifyImage(Bytes());
  EXPECT_TRUE(report.Damaged());
  EXPECT_FALSE(report.findings[0].slot);
}

TEST_F(CVerifyTest, ReversedBlockIsNoDamageAndCostsTheLogAllTheSame) {
  RingModel model(4);
  for (int i = 0; i < 9; ++i) model.Submit(MakeBody(1000 * i, std::to_string(i)));
  model.Flush();
  bytes = ImageOf(model.Snapshot());
  const auto report = tamlog::VerifyImage(Bytes());
  EXPECT_FALSE(report.Damaged());
  EXPECT_FALSE(report.Accepted());
  EXPECT_EQ(report.Count(TAMLOG_RULE_REVERSED_BLOCK), 1U);
  const auto repaired = tamlog::RepairFile(Write(), output);
  EXPECT_EQ(repaired.counts.saved, 4U);
  EXPECT_TRUE(tamlog::VerifyFile(output).Accepted());
  EXPECT_EQ(TextsOf(output), "5678");
}

TEST_F(CVerifyTest, NoBytesAndFewBytesAreDifferentFindings) {
  EXPECT_EQ(tamlog::VerifyImage({}).Count(TAMLOG_RULE_EMPTY_FILE), 1U);
  bytes.resize(100);
  EXPECT_EQ(tamlog::VerifyImage(Bytes()).Count(TAMLOG_RULE_HEADER_COMPLETE), 1U);
}

TEST_F(CVerifyTest, ListIsLimitedByMostAndByTheCallersAnswerAndAllIsCounted) {
  for (std::uint64_t slot = 0; slot < 6; ++slot) SetType(slot, 9);
  EXPECT_EQ(tamlog::VerifyImage(Bytes(), 2).findings.size(), 2U);
  EXPECT_EQ(tamlog::VerifyImage(Bytes(), 2).counts.damage, 6U);
  EXPECT_EQ(tamlog::VerifyImage(Bytes(), std::numeric_limits<std::uint64_t>::max()).findings.size(), 6U);
  int calls = 0;
  auto options = tamlog::Make<tamlog_verify_options>();
  options.context = &calls;
  options.found = [](void* context, const tamlog_finding*) -> std::int32_t {
    return ++*static_cast<int*>(context) == 3 ? 1 : 0;
  };
  auto result = tamlog::Make<tamlog_verify_result>();
  EXPECT_EQ(tamlog_verify_image(bytes.data(), bytes.size(), &options, &result), TAMLOG_DAMAGED);
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(result.damage, 6U);
}

TEST_F(CVerifyTest, WhatAFunctionThrowsBecomesAStatus) {
  SetType(0, 9);
  auto options = tamlog::Make<tamlog_verify_options>();
  options.found = [](void*, const tamlog_finding*) -> std::int32_t { throw std::bad_alloc(); };
  auto result = tamlog::Make<tamlog_verify_result>();
  EXPECT_EQ(tamlog_verify_image(bytes.data(), bytes.size(), &options, &result), TAMLOG_NO_MEMORY);
}

TEST_F(CVerifyTest, RepairSavesWhatCanBeReadAndReportsTheRest) {
  BlankSlot(1);
  SetType(4, 0x40000002);
  const std::string before = bytes;
  const auto report = tamlog::RepairFile(Write(), output);
  EXPECT_EQ(Contents(damaged), before) << "the damaged file is only read";
  EXPECT_EQ(TextsOf(output), "02345");
  EXPECT_TRUE(tamlog::VerifyFile(output).Accepted());
  EXPECT_EQ(report.counts.saved, 5U);
  EXPECT_EQ(report.counts.capacity, 8U);
  EXPECT_EQ(report.counts.lost, 1U);
  EXPECT_EQ(report.counts.types_changed, 1U);
  EXPECT_EQ(report.counts.header_trusted, 1U);
  ASSERT_EQ(report.notes.size(), 2U);
  EXPECT_EQ(report.notes[0].kind, TAMLOG_NOTE_BLANK);
  EXPECT_FALSE(report.notes[0].saved);
  EXPECT_EQ(report.notes[0].slot, 1U);
  EXPECT_EQ(report.notes[0].offset, LogFileImage::OffsetOf(1));
  EXPECT_EQ(report.notes[0].messages, 1U);
  EXPECT_EQ(report.notes[1].kind, TAMLOG_NOTE_TYPE_CHANGED);
  EXPECT_TRUE(report.notes[1].saved);
  EXPECT_EQ(report.notes[1].slot, 4U);
  EXPECT_EQ(report.notes[1].text, "type 1073741826 became 2");
  EXPECT_EQ(tamlog::Reader::File(output).At(3).Type(), 2U);
}

TEST_F(CVerifyTest, UnterminatedTextIsCutAndReported) {
  std::memset(
      bytes.data() + LogFileImage::OffsetOf(5) + offsetof(LogMessage, body) + offsetof(LogMessageBody, text),
      'x', kTextSize);
  const auto report = tamlog::RepairFile(Write(), output);
  EXPECT_EQ(TextsOf(output), "01234" + std::string(256, 'x'));
  EXPECT_EQ(report.counts.texts_cut, 1U);
  ASSERT_EQ(report.notes.size(), 1U);
  EXPECT_EQ(report.notes[0].kind, TAMLOG_NOTE_TEXT_CUT);
}

TEST_F(CVerifyTest, CutFileReportsWhatIsMissing) {
  bytes.resize(LogFileSize(4));
  const auto report = tamlog::RepairFile(Write(), output);
  EXPECT_EQ(TextsOf(output), "0123");
  ASSERT_EQ(report.notes.size(), 1U);
  EXPECT_EQ(report.notes[0].kind, TAMLOG_NOTE_MISSING);
  EXPECT_EQ(report.notes[0].messages, 2U);
  EXPECT_EQ(report.counts.lost, 2U);
}

TEST_F(CVerifyTest, CarvingFindsWhatTheHeaderDoesNotCount) {
  bytes[offsetof(LogFileHeader, messageCount)] = 0;
  auto report = tamlog::RepairFile(Write(), output);
  EXPECT_EQ(report.counts.saved, 0U);
  EXPECT_EQ(report.counts.outside, 6U) << "never left out in silence";
  report = tamlog::RepairFile(damaged, output, {.carve = true, .replace = true});
  EXPECT_EQ(report.counts.saved, 6U);
  EXPECT_EQ(report.counts.carved, 6U);
  EXPECT_EQ(report.counts.outside, 0U);
  EXPECT_EQ(TextsOf(output), "012345");
}

TEST_F(CVerifyTest, CapacityAskedForKeepsTheNewest) {
  auto report = tamlog::RepairFile(Write(), output, {.capacity = 4});
  EXPECT_EQ(report.counts.capacity, 4U);
  EXPECT_EQ(report.counts.saved, 4U);
  EXPECT_EQ(report.counts.left_out, 2U);
  EXPECT_EQ(TextsOf(output), "2345");
  EXPECT_EQ(Contents(output).size(), LogFileSize(4));
  report = tamlog::RepairFile(damaged, output, {.replace = true, .capacity = 100});
  EXPECT_EQ(report.counts.saved, 6U);
  EXPECT_EQ(Contents(output).size(), LogFileSize(100));
}

TEST_F(CVerifyTest, DoublesAreLeftOutWhenAsked) {
  std::memcpy(bytes.data() + LogFileImage::OffsetOf(4), bytes.data() + LogFileImage::OffsetOf(3),
              sizeof(LogMessage));
  const auto report = tamlog::RepairFile(Write(), output, {.unique = true});
  EXPECT_EQ(report.counts.repeated, 1U);
  EXPECT_EQ(report.counts.carved, 0U);
  EXPECT_EQ(TextsOf(output), "01235");
}

TEST_F(CVerifyTest, NothingIsWrittenInPlaceOrOverAnotherFile) {
  const std::string before = bytes;
  Write();
  const tamlog::RepairOptions replace{.replace = true};
  EXPECT_EQ(CodeOf(damaged, damaged, replace), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(CodeOf(damaged, scratch.File("./damaged.dat"), replace), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(Contents(damaged), before);
  std::ofstream(output) << "mine";
  EXPECT_EQ(CodeOf(damaged, output), TAMLOG_EXISTS);
  EXPECT_EQ(Contents(output), "mine");
  EXPECT_EQ(CodeOf(damaged, output, replace), TAMLOG_OK);
  EXPECT_EQ(TextsOf(output), "012345");
}

TEST_F(CVerifyTest, EachTroubleHasItsCode) {
  Write();
  EXPECT_EQ(CodeOf(scratch.File("none"), output), TAMLOG_NOT_FOUND);
  EXPECT_EQ(CodeOf(scratch.File("."), output), TAMLOG_NOT_FOUND);
  EXPECT_EQ(CodeOf(damaged, scratch.File("."), {.replace = true}), TAMLOG_EXISTS);
  EXPECT_EQ(CodeOf(damaged, scratch.File("none/deeper.dat")), TAMLOG_OUTPUT_FAILED);
  EXPECT_EQ(CodeOf(damaged, output, {.capacity = 0x80000000U}), TAMLOG_BAD_ARGUMENT);
  EXPECT_FALSE(std::filesystem::exists(output));
  try {
    tamlog::VerifyFile(scratch.File("none"));
    FAIL();
  } catch (const tamlog::Error& error) {
    EXPECT_EQ(error.Code(), TAMLOG_NOT_FOUND);
  }
}

TEST_F(CVerifyTest, BadArgumentsAreRefused) {
  Write();
  auto verified = tamlog::Make<tamlog_verify_result>();
  auto repaired = tamlog::Make<tamlog_repair_result>();
  EXPECT_EQ(tamlog_verify_file(nullptr, nullptr, &verified), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_verify_file(damaged.c_str(), nullptr, nullptr), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_verify_image(nullptr, 1, nullptr, &verified), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_verify_image(nullptr, 0, nullptr, &verified), TAMLOG_OK);
  EXPECT_EQ(tamlog_repair_file(nullptr, output.c_str(), nullptr, &repaired), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_repair_file(damaged.c_str(), nullptr, nullptr, &repaired), TAMLOG_BAD_ARGUMENT);
  EXPECT_EQ(tamlog_repair_file(damaged.c_str(), output.c_str(), nullptr, nullptr), TAMLOG_BAD_ARGUMENT);
  auto options = tamlog::Make<tamlog_repair_options>();
  options.flags = 8;
  EXPECT_EQ(tamlog_repair_file(damaged.c_str(), output.c_str(), &options, &repaired), TAMLOG_BAD_ARGUMENT);
  options.flags = 0;
  options.size = 4;
  EXPECT_EQ(tamlog_repair_file(damaged.c_str(), output.c_str(), &options, &repaired), TAMLOG_BAD_ARGUMENT);
  verified.size = 8;
  EXPECT_EQ(tamlog_verify_file(damaged.c_str(), nullptr, &verified), TAMLOG_BAD_ARGUMENT);
  EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_F(CVerifyTest, ProgramInCVerifiesAndRepairs) {
  BlankSlot(1);
  SetType(4, 6);
  tamlog_test_sums sums;
  std::uint64_t damage = 0;
  EXPECT_EQ(tamlog_test_verify(Write().c_str(), &sums, &damage), TAMLOG_DAMAGED);
  EXPECT_GE(damage, 1U);
  EXPECT_GE(sums.given, damage);
  EXPECT_GT(sums.offsets, 0U);
  std::uint64_t saved = 0;
  EXPECT_EQ(tamlog_test_repair(damaged.c_str(), output.c_str(), &sums, &saved), TAMLOG_OK);
  EXPECT_EQ(saved, 5U);
  EXPECT_EQ(sums.given, 2U);
  EXPECT_EQ(sums.messages, 1U);
  EXPECT_EQ(sums.offsets, LogFileImage::OffsetOf(1) + LogFileImage::OffsetOf(4));
  EXPECT_EQ(tamlog_test_verify(output.c_str(), &sums, &damage), TAMLOG_OK);
  EXPECT_EQ(damage, 0U);
}

TEST_F(CVerifyTest, FileThatIsNoLogHasACodeOfItsOwnAndNothingIsWritten) {
  bytes.assign(5000, 'x');
  EXPECT_EQ(CodeOf(Write(), output), TAMLOG_NOT_A_LOG);
  EXPECT_FALSE(std::filesystem::exists(output));
  tamlog_verify_result result;
  TAMLOG_INIT(&result);
  EXPECT_EQ(tamlog_verify_file(damaged.c_str(), nullptr, &result), TAMLOG_NOT_A_LOG);
  tamlog_reader* reader = nullptr;
  EXPECT_EQ(tamlog_reader_open_file(damaged.c_str(), &reader), TAMLOG_NOT_A_LOG);
  EXPECT_EQ(reader, nullptr);
}

TEST_F(CVerifyTest, BytesThatAreMissingAreFoundByAllFunctions) {
  bytes.erase(LogFileImage::OffsetOf(2) + 60, 45);
  const auto report = tamlog::VerifyFile(Write());
  EXPECT_EQ(report.Count(TAMLOG_RULE_SHIFTED_SLOTS), 1U);
  EXPECT_STREQ(tamlog_rule_name(TAMLOG_RULE_SHIFTED_SLOTS), "shifted-slots");
  EXPECT_EQ(tamlog::RepairFile(damaged, output).counts.saved, 5U);
  EXPECT_EQ(TextsOf(output), "01345");
  EXPECT_EQ(TextsOf(damaged), "01345");
}

}  // namespace
