#include "client/format/format_options.h"

#include <gtest/gtest.h>

#include <string>

#include "client/format/message_formatter.h"
#include "tests/client/format/nasty_messages.h"

namespace {

using TamLogClient::Field;
using TamLogClient::Format;
using TamLogClient::FormatFromName;
using TamLogClient::FormatOptions;
using TamLogClient::MessageFormatter;
using TamLogClient::ParseFields;
using TamLogClient::TypeNames;

std::string FieldProblem(const char* list) {
  std::string problem;
  return ParseFields(list, problem) ? "" : problem;
}

std::string NamesProblem(const char* list) {
  std::string problem;
  return TypeNames::Parse(list, problem) ? "" : problem;
}

TEST(FormatNames, AllAreKnown) {
  EXPECT_EQ(FormatFromName("json-array"), Format::JsonArray);
  EXPECT_EQ(FormatFromName("export"), Format::Export);
  EXPECT_EQ(FormatFromName("rfc5424"), Format::Rfc5424);
  EXPECT_EQ(FormatFromName("raw"), Format::Raw);
  EXPECT_FALSE(FormatFromName("JSON"));
}

TEST(FieldLists, KeepTheirOrder) {
  std::string problem;
  EXPECT_EQ(ParseFields("text,time", problem), (std::vector<Field>{Field::Text, Field::Time}));
  EXPECT_EQ(ParseFields("time,seq,type,label,source,text,origin,tail,spare,late", problem)->size(), 10U);
}

TEST(FieldLists, EveryFieldHasOneName) {
  for (int i = 0; i <= static_cast<int>(Field::TextHex); ++i) {
    const auto field = static_cast<Field>(i);
    EXPECT_EQ(TamLogClient::FieldFromName(TamLogClient::NameOf(field)), field);
  }
}

TEST(FieldLists, AllNamesEveryField) {
  std::string problem;
  const auto fields = TamLogClient::ParseFields("all", problem);
  ASSERT_TRUE(fields) << problem;
  EXPECT_EQ(fields->size(), static_cast<std::size_t>(Field::Cursor) + 1);
}

TEST(FieldLists, MistakesNameTheMend) {
  EXPECT_NE(FieldProblem("time,when").find("unknown field 'when'; the fields are time"), std::string::npos);
  EXPECT_NE(FieldProblem("").find("a field is missing"), std::string::npos);
  EXPECT_NE(FieldProblem("time,").find("a field is missing"), std::string::npos);
  EXPECT_NE(FieldProblem(",time").find("unknown field ''"), std::string::npos);
  EXPECT_EQ(FieldProblem("time,seq,time"), "'time' is named twice; name it once");
}

TEST(TypeNamesTest, ReplaceTheNumbers) {
  std::string problem;
  const auto names = TypeNames::Parse("0=info,3=Bad-One", problem);
  ASSERT_TRUE(names) << problem;
  std::string out;
  for (const std::uint32_t type : {0U, 1U, 3U, 4U, 4000000000U}) {
    names->Append(type, out);
    out += ' ';
  }
  EXPECT_EQ(out, "info T1 Bad-One T4 T4000000000 ");
  EXPECT_TRUE(names->Given());
  EXPECT_FALSE(TypeNames().Given());
}

TEST(TypeNamesTest, NamesOfSeveritiesAreSeverities) {
  std::string problem;
  const auto names = TypeNames::Parse("0=Warning,1=err,2=camera", problem);
  EXPECT_EQ(names->Severity(0), 4);
  EXPECT_EQ(names->Severity(1), 3);
  EXPECT_FALSE(names->Severity(2));
  EXPECT_FALSE(names->Severity(3));
  EXPECT_FALSE(names->Severity(4));
}

TEST(TypeNamesTest, MistakesNameTheMend) {
  for (const char* const list :
       {"4=x", "0", "0=", "=x", "0=a b", "0=a,x", "0=\x1b", "00=a", "0=longer-than-sixteen"})
    EXPECT_NE(NamesProblem(list).find("expected 0=info,1=warn"), std::string::npos) << list;
  for (const char* const list : {"", "0=a,"})
    EXPECT_NE(NamesProblem(list).find("a name is missing"), std::string::npos) << list;
  EXPECT_EQ(NamesProblem("0=a,0=b"), "type 0 is named twice; name it once");
}

std::string Array(std::size_t count) {
  FormatOptions options;
  options.format = Format::JsonArray;
  options.fields = {Field::Seq};
  MessageFormatter formatter(options);
  std::string out;
  formatter.AppendHead(out);
  for (std::size_t i = 0; i < count; ++i) formatter.Append(TamLogTest::NastyMessages()[i], false, out);
  formatter.AppendTail(out);
  return out;
}

TEST(JsonArray, IsWholeWithAnyNumberOfMessages) {
  EXPECT_EQ(Array(0), "[\n]\n");
  EXPECT_EQ(Array(1), "[\n{\"seq\":4711}\n]\n");
  EXPECT_EQ(Array(2), "[\n{\"seq\":4711},\n{\"seq\":4712}\n]\n");
}

TEST(Raw, IsTheSlot) {
  const LogMessage message = TamLogTest::NastyMessages()[7];
  FormatOptions options;
  options.format = Format::Raw;
  std::string out;
  MessageFormatter(options).Append(message, true, out);
  EXPECT_EQ(out, std::string(reinterpret_cast<const char*>(&message), 560));
}

TEST(Formats, ATypeThatDoesNotExistIsShownAsItIs) {
  LogMessage message = TamLogTest::NastyMessages()[0];
  message.body.type = 4000000000U;
  std::string out;
  MessageFormatter({Format::Short}).Append(message, false, out);
  EXPECT_NE(out.find(" T4000000000 "), std::string::npos) << out;
}

}  // namespace
