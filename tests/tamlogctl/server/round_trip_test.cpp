// Everything that an export writes in a data format can be imported again, and nothing is lost: every byte
// that its sender gave a message is there.

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/output_options.h"
#include "tests/support/files.h"
#include "tests/support/ring_model.h"
#include "tests/support/temp_dir.h"
#include "tests/tamlogctl/server/imported.h"

namespace {

using TamLogCtl::ImportChoice;
using TamLogCtl::kDone;
using TamLogCtl::OutputOptions;
using TamLogTest::MakeBody;

const std::vector<std::string>& HostileTexts() {
  static const std::vector<std::string> kTexts{
      "",
      " ",
      "-",
      "text",
      "two\nlines\r\nand\ttabs\t",
      "\n",
      "\r",
      "\n\n2026-01-02 03:04:05 not a message of its own",
      "\x1b[2J\x1b]0;owned\x07 \x01\x1f\x7f",
      R"(say "a,b"; 'c' \n {"json": [1]} = ]>)",
      "\\x41 \\t \\\\ \\",
      "\"",
      "\"\"",
      "a\"b\"\"c",
      ",;\t,",
      "K\xC3\xA4se \xE2\x82\xAC \xF0\x9F\x98\x80",
      "gr\xFC\xDF",
      "\xFF\xFE cut \xE2\x82",
      "\xC0\xAF surrogate \xED\xA0\x80 beyond \xF4\x90\x80\x80",
      "\xEF\xBF\xBD is no unreadable byte",
      "\xEF\xBB\xBF"
      "begins with a mark",
      "\xC2\x9B"
      "31m red \xC2\x85 next \xC2\xA0",
      "=cmd|' /C calc'!A0",
      "# comment",
      "[tamlog@32473 type=\"3\"]",
      "<14>1 2026-01-02T03:04:05.678Z - - - - - text",
      "__CURSOR=x\n\nMESSAGE=y",
      "{\"time\":null}",
      "time,type,source,text",
      " leading and trailing ",
      "\xE2\x80\xAEright to left\xE2\x80\xA8",
      std::string(256, 't'),
      std::string(256, '\xFC'),
      std::string(256, '\n'),
      std::string(256, '\\'),
  };
  return kTexts;
}

void SetBytes(LogMessageBody& body, std::mt19937& random) {
  for (std::uint8_t& byte : body.origin) byte = static_cast<std::uint8_t>(random());
  for (std::uint8_t& byte : body.tail) byte = static_cast<std::uint8_t>(random());
}

// Every text as text, and as source; random bytes; impossible times.
std::vector<LogMessageBody> HostileMessages() {
  std::mt19937 random(7);
  std::vector<LogMessageBody> messages;
  const auto add = [&](const std::string& text, const std::string& source) {
    LogMessageBody body = MakeBody(static_cast<std::int32_t>(messages.size()) * 1001, text, source,
                                   static_cast<std::uint32_t>(messages.size() % 4));
    SetBytes(body, random);
    if (messages.size() % 5 == 0) body.timestamp[7] = static_cast<std::int16_t>(random());
    messages.push_back(body);
  };
  for (const std::string& text : HostileTexts()) {
    add(text, "Camera");
    add("text", text);
    add(text, text);
  }
  for (int i = 0; i < 200; ++i) {
    std::string text(random() % 257, '\0');
    for (char& letter : text) letter = static_cast<char>(1 + random() % 255);
    std::string source(random() % 257, '\0');
    for (char& letter : source) letter = static_cast<char>(1 + random() % 255);
    add(text, source);
  }
  for (int i = 0; i < 50; ++i) {
    add("impossible", "Calendar");
    for (std::int16_t& word : messages.back().timestamp) word = static_cast<std::int16_t>(random());
  }
  return messages;
}

struct Way {
  const char* format;
  const char* input;
  const char* extension;
  const char* encoding = "";
  const char* zone = "written";
  const char* fields = "";
};

std::string Exported(const std::vector<LogMessageBody>& messages, const Way& way,
                     const std::string& host = {}) {
  OutputOptions options;
  options.format = way.format;
  options.encoding = way.encoding;
  options.zone = way.zone;
  options.fields = way.fields;
  auto formatter = TamLogCtl::MakeFileFormatter(options);
  std::string bytes;
  if (!formatter) {
    ADD_FAILURE() << way.format;
    return bytes;
  }
  formatter->AppendHead(bytes);
  std::uint64_t sequence = 0;
  for (const LogMessageBody& body : messages) {
    LogMessage message{};
    message.sequence = sequence++;
    message.body = body;
    formatter->Append(message, sequence % 7 == 0, bytes, 1, host);
  }
  formatter->AppendTail(bytes);
  return bytes;
}

class RoundTrip : public testing::TestWithParam<Way> {
 protected:
  TamLogTest::Imported Read(const std::string& bytes, const char* input, const std::string& fields = "") {
    const std::string path = folder.File(std::string("saved.") + GetParam().extension);
    TestSupport::WriteBytes(path, bytes);
    ImportChoice choice;
    choice.format = input;
    std::string problem;
    if (!fields.empty()) choice.fields = *TamLogClient::ParseFields(fields, problem);
    return TamLogTest::ReadAll(path, choice);
  }

  TestSupport::TempDir folder;
};

void ExpectEqual(const std::vector<LogMessageBody>& found, const std::vector<LogMessageBody>& wanted) {
  ASSERT_EQ(found.size(), wanted.size());
  for (std::size_t i = 0; i < found.size(); ++i) {
    ASSERT_STREQ(found[i].source, wanted[i].source) << i;
    ASSERT_STREQ(found[i].text, wanted[i].text) << i;
    ASSERT_EQ(std::memcmp(&found[i], &wanted[i], sizeof(wanted[i])), 0) << i << " " << wanted[i].text;
  }
}

TEST_P(RoundTrip, LosesNothing) {
  const auto messages = HostileMessages();
  const std::string bytes = Exported(messages, GetParam());
  for (const char* const input : {GetParam().input, "auto"}) {
    for (const bool named : {false, true}) {
      SCOPED_TRACE(std::string(input) + (named ? ", with the names of its columns" : ""));
      const auto source = Read(bytes, input, named ? GetParam().fields : "");
      EXPECT_EQ(source.format, GetParam().input);
      EXPECT_EQ(source.exitCode, kDone) << (source.problems.empty() ? "" : source.problems.front());
      EXPECT_EQ(source.continued, 0U);
      ExpectEqual(source.messages, messages);
    }
  }
}

// Files are read in pieces of 64 KiB.
TEST_P(RoundTrip, LosesNothingWhereAPieceOfTheFileEnds) {
  const auto hostile = HostileMessages();
  for (std::size_t shift = 0; shift < 6; ++shift) {
    std::vector<LogMessageBody> messages{MakeBody(5, std::string(shift, 'x'), "Camera", 1)};
    std::string bytes;
    while (bytes.size() < 150000) {
      messages.insert(messages.end(), hostile.begin(), hostile.end());
      bytes = Exported(messages, GetParam());
    }
    const auto source = Read(bytes, GetParam().input);
    ASSERT_EQ(source.exitCode, kDone) << (source.problems.empty() ? "" : source.problems.front());
    ASSERT_NO_FATAL_FAILURE(ExpectEqual(source.messages, messages)) << shift;
  }
}

TEST_P(RoundTrip, LosesNothingOfASingleMessage) {
  for (const std::string& text : HostileTexts()) {
    const std::vector<LogMessageBody> messages{MakeBody(5, text, "Camera", 1)};
    const auto source = Read(Exported(messages, GetParam()), "auto");
    ASSERT_EQ(source.exitCode, kDone) << text;
    ASSERT_NO_FATAL_FAILURE(ExpectEqual(source.messages, messages)) << text;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, RoundTrip,
    testing::Values(
        Way{"json", "json", "txt"}, Way{"json-array", "json", "json"}, Way{"csv", "csv", "csv"},
        Way{"csv", "csv", "txt"}, Way{"tsv", "tsv", "tsv"}, Way{"tsv", "tsv", "txt"},
        Way{"export", "export", "txt"}, Way{"rfc5424", "text", "log"}, Way{"raw", "raw", "bin"},
        Way{"json", "json", "txt", "windows-1252", "+02:00"}, Way{"csv", "csv", "csv", "windows-1252", "utc"},
        Way{"tsv", "tsv", "tsv", "cp437", "+05:30"}, Way{"export", "export", "txt", "windows-1252", "-09:30"},
        Way{"rfc5424", "text", "log", "latin-1", "utc"}, Way{"csv", "csv", "csv", "", "written", "all"},
        Way{"tsv", "tsv", "tsv", "", "written", "all"}, Way{"tsv", "tsv", "txt", "", "written", "all"},
        Way{"csv", "csv", "txt", "", "written", "all"}, Way{"json", "json", "txt", "", "written", "all"}),
    [](const auto& named) { return "way" + std::to_string(named.index); });

// The log has no field for the machine's name: it precedes the source, as in the output of merge for people.
TEST(RoundTripOfTheHost, KeepsTheNameOfTheMachine) {
  const TestSupport::TempDir folder;
  const std::vector<LogMessageBody> messages{MakeBody(5, "text", "Camera", 1)};
  for (const Way& way : {Way{"json", "", "json"}, Way{"rfc5424", "", "log"}, Way{"export", "", "txt"},
                         Way{"csv", "", "csv", "", "written", "all"}}) {
    const std::string path = folder.File(std::string("saved.") + way.extension);
    TestSupport::WriteBytes(path, Exported(messages, way, "east"));
    ImportChoice choice;
    const auto source = TamLogTest::ReadAll(path, choice);
    ASSERT_EQ(source.messages.size(), 1U) << way.format;
    EXPECT_STREQ(source.messages[0].source, "east/Camera") << way.format;
    choice.dropHost = true;
    EXPECT_STREQ(TamLogTest::ReadAll(path, choice).messages.at(0).source, "Camera") << way.format;
  }
}

}  // namespace
