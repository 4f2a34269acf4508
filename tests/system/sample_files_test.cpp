// Tests the sample logs of the conformance kit with the real server: it keeps the messages of those that the
// kit says it keeps, and empties the others.

#include "tests/system/system_test.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace {

struct Sample {
  std::string name;
  std::uint32_t capacity = 0;
  bool kept = false;
  std::string bytes;
};

// Returns what follows `key` in the verdict, up to the end of its line.
std::string ValueOf(const std::string& verdict, const std::string& key) {
  const std::size_t begin = verdict.find("\"" + key + "\": ");
  if (begin == std::string::npos) throw std::runtime_error("a verdict has no " + key);
  const std::size_t value = begin + key.size() + 4;
  return verdict.substr(value, verdict.find_first_of(",\n", value) - value);
}

std::vector<Sample> Samples(bool kept) {
  std::vector<Sample> samples;
  for (const auto& file : std::filesystem::directory_iterator(TAMLOG_SAMPLES)) {
    if (file.path().extension() != ".json") continue;
    const std::string verdict = ReadWholeFile(file.path().string());
    Sample sample;
    sample.name = file.path().stem().string();
    sample.capacity = static_cast<std::uint32_t>(std::stoul(ValueOf(verdict, "capacity")));
    sample.kept = ValueOf(verdict, "server") == "\"keeps\"";
    sample.bytes = ReadWholeFile(std::filesystem::path(file.path()).replace_extension(".dat").string());
    if (sample.kept == kept) samples.push_back(sample);
  }
  std::sort(samples.begin(), samples.end(),
            [](const Sample& left, const Sample& right) { return left.name < right.name; });
  return samples;
}

// Returns numbers and bytes of the messages, newest slot first. A short file has as many slots as the ring
// needs.
std::vector<std::string> MessagesIn(const std::string& bytes) {
  LogFileHeader header{};
  std::memcpy(&header, bytes.data(), sizeof header);
  std::vector<std::string> messages;
  for (std::int32_t i = 0; i < header.messageCount; ++i) {
    std::int32_t slot = header.nextSlot - 1 - i;
    if (slot < 0) slot += header.maxMessages;
    const std::size_t offset = kSlotsOffset + sizeof(LogMessage) * static_cast<std::size_t>(slot);
    messages.push_back(bytes.substr(offset, offsetof(LogMessage, padding)));
  }
  return messages;
}

}  // namespace

class SampleFiles : public SystemTest {
 protected:
  void Open(const Sample& sample) {
    WriteWholeFile(LogFile(), sample.bytes);
    Settings({.maxMessage = sample.capacity});
    StartService();
  }
};

TEST_F(SampleFiles, OfTheConformanceKitKeepTheirMessagesWhereItSaysSo) {
  InstallService();
  const std::vector<Sample> samples = Samples(true);
  ASSERT_GT(samples.size(), 15U);
  for (const Sample& sample : samples) {
    SCOPED_TRACE(sample.name);
    Open(sample);
    const std::string after = ReadWholeFile(LogFile());
    EXPECT_EQ(after.size(), LogFileSize(sample.capacity));
    EXPECT_EQ(MessagesIn(after), MessagesIn(sample.bytes));
    EXPECT_EQ(Header().maxMessages, static_cast<std::int32_t>(sample.capacity));
    EXPECT_EQ(Header().readCount, 0);
    KillService();
  }
}

TEST_F(SampleFiles, OfTheConformanceKitAreEmptiedWhereItSaysSo) {
  InstallService();
  const std::vector<Sample> samples = Samples(false);
  ASSERT_GT(samples.size(), 15U);
  for (const Sample& sample : samples) {
    SCOPED_TRACE(sample.name);
    Open(sample);
    const TestLogFile after = SlotsOfFile();
    EXPECT_EQ(after.slots.size(), sample.capacity);
    EXPECT_EQ(after.header.messageCount, 0);
    EXPECT_EQ(after.header.maxMessages, static_cast<std::int32_t>(sample.capacity));
    EXPECT_EQ(after.header.changeCount, 2U);
    EXPECT_EQ(after.header.rewriteCount, 1U);
    EXPECT_EQ(after.header.nextSequence, 0U);
    KillService();
  }
}
