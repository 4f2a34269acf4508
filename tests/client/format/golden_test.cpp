// Compares every format, over one set of messages, with a file that a person has checked. To write the files
// again: TAMLOG_UPDATE_GOLDEN=1 build/asan/tests/client/format/client_format_golden_tests; then examine the
// difference.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "client/format/message_formatter.h"
#include "client/message/utf8.h"
#include "tests/client/format/nasty_messages.h"

namespace {

using TamLogClient::Format;
using TamLogClient::FormatOptions;
using TamLogClient::MessageFormatter;
using TamLogClient::TextEncoding;
using TamLogClient::TextTemplate;
using TamLogClient::TimeZone;
using TamLogClient::TypeNames;

struct GoldenCase {
  std::string file;
  FormatOptions options{};
};

// How gtest names a case.
std::ostream& operator<<(std::ostream& to, const GoldenCase& tested) {
  return to << tested.file;
}

std::string PathOf(const std::string& file) {
  return TAMLOG_GOLDEN "/" + file;
}

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

// Every third message is late.
std::string Formatted(const FormatOptions& options) {
  MessageFormatter formatter(options);
  std::string out;
  formatter.AppendHead(out);
  const auto messages = TamLogTest::NastyMessages();
  for (std::size_t i = 0; i < messages.size(); ++i) formatter.Append(messages[i], i % 3 == 2, out);
  formatter.AppendTail(out);
  return out;
}

FormatOptions With(Format format) {
  FormatOptions options;
  options.format = format;
  return options;
}

FormatOptions Everything(Format format) {
  std::string problem;
  FormatOptions options = With(format);
  options.zone = *TimeZone::FromName("+02:00", {});
  options.typeNames = *TypeNames::Parse("0=info,1=warn,3=err", problem);
  options.encoding = *TextEncoding::FromName("windows-1252");
  return options;
}

FormatOptions Shown(Format format, bool color) {
  FormatOptions options = With(format);
  options.terminal = true;
  options.color = color;
  return options;
}

FormatOptions Fields(Format format) {
  std::string problem;
  FormatOptions options = With(format);
  options.fields =
      *TamLogClient::ParseFields("late,text,time,label,spare,tail,origin,seq,type,source,cursor", problem);
  return options;
}

FormatOptions Layout(const char* text) {
  std::string problem;
  FormatOptions options = With(Format::Template);
  options.layout = *TextTemplate::Parse(text, problem);
  return options;
}

std::vector<GoldenCase> Cases() {
  return {{"short.txt", With(Format::Short)},
          {"short-everything.txt", Everything(Format::Short)},
          {"short-color.txt", Shown(Format::Short, true)},
          {"full.txt", With(Format::Full)},
          {"cat.bin", With(Format::Cat)},
          {"cat-terminal.txt", Shown(Format::Cat, false)},
          {"cat-windows-1252.txt", Everything(Format::Cat)},
          {"json.txt", With(Format::Json)},
          {"json-everything.txt", Everything(Format::Json)},
          {"json-fields.txt", Fields(Format::Json)},
          {"json-array.json", With(Format::JsonArray)},
          {"csv.csv", With(Format::Csv)},
          {"csv-everything.csv", Everything(Format::Csv)},
          {"csv-fields.csv", Fields(Format::Csv)},
          {"csv-terminal.txt", Shown(Format::Csv, false)},
          {"tsv.tsv", With(Format::Tsv)},
          {"tsv-everything.tsv", Everything(Format::Tsv)},
          {"tsv-fields.tsv", Fields(Format::Tsv)},
          {"template.txt", Layout("{{{time}}} {seq}/{type}/{label}\\t{source}: {text} {origin}{tail} "
                                  "{spare} {late} {cursor}\\n--\\\\")},
          {"export.bin", With(Format::Export)},
          {"export-everything.bin", Everything(Format::Export)},
          {"export-terminal.txt", Shown(Format::Export, false)},
          {"rfc5424.txt", With(Format::Rfc5424)},
          {"rfc5424-everything.txt", Everything(Format::Rfc5424)},
          {"raw.bin", With(Format::Raw)}};
}

class GoldenTest : public testing::TestWithParam<GoldenCase> {};

TEST_P(GoldenTest, IsAsItWas) {
  const std::string path = PathOf(GetParam().file);
  const std::string now = Formatted(GetParam().options);
  if (std::getenv("TAMLOG_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(path, std::ios::binary) << now;
  }
  const std::string golden = ReadAll(path);
  ASSERT_FALSE(golden.empty()) << path << " is missing; write it with TAMLOG_UPDATE_GOLDEN=1";
  EXPECT_EQ(now, golden) << path;
}

TEST_P(GoldenTest, IsValidUtf8UnlessItIsBinary) {
  if (GetParam().file.find(".bin") == std::string::npos) {
    EXPECT_TRUE(TamLogClient::IsValidUtf8(Formatted(GetParam().options)));
  }
}

TEST_P(GoldenTest, SendsNothingToATerminalThatControlsIt) {
  FormatOptions options = GetParam().options;
  if (options.format == Format::Raw) return;  // is refused there
  options.terminal = true;
  options.color = false;
  std::string out = Formatted(options);
  for (std::size_t i = 0; i < out.size(); ++i) {
    const auto byte = static_cast<unsigned char>(out[i]);
    EXPECT_TRUE(byte >= 0x20 || byte == '\n' || byte == '\t') << "at " << i;
    EXPECT_NE(byte, 0x7F) << "at " << i;
    EXPECT_FALSE(byte == 0xC2 && static_cast<unsigned char>(out[i + 1]) < 0xA0) << "at " << i;
  }
  EXPECT_TRUE(TamLogClient::IsValidUtf8(out));
}

TEST_P(GoldenTest, IsOneLineAMessageWhereItSaysSo) {
  const Format format = GetParam().options.format;
  const bool lines = format == Format::Short || format == Format::Full || format == Format::Json ||
                     format == Format::Tsv || format == Format::Rfc5424;
  if (!lines) return;
  const std::string out = Formatted(GetParam().options);
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'),
            static_cast<std::ptrdiff_t>(TamLogTest::NastyMessages().size()));
  EXPECT_EQ(out.find('\r'), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Formats, GoldenTest, testing::ValuesIn(Cases()), [](const auto& tested) {
  std::string name = tested.param.file;
  for (char& letter : name) {
    if (letter == '.' || letter == '-') letter = '_';
  }
  return name;
});

}  // namespace
