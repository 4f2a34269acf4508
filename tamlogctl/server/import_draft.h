#pragma once

// What the readers of the single formats find, before it becomes messages. Each reader parses the bytes of
// one file and adds one draft for each message, with the number of its line.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/format/message_fields.h"
#include "client/message/time_text.h"
#include "tamlogctl/server/long_text.h"

namespace TamLogCtl {

// How lines of other programs become messages.
struct ImportChoice {
  std::string format = "auto";  // one of kImportFormats
  std::vector<TamLogClient::Field>
      fields;                         // columns of csv or tsv without a head line; empty: the usual ones
  std::string source;                 // of lines that name none; empty: the file's name
  std::uint32_t type = 0;             // of lines that state none
  TamLogClient::TypeNames typeNames;  // the types of syslog's severities
  bool keepZone = false;              // keep the digits of a time with a zone; else it becomes local time
  std::optional<std::uint32_t> year;  // of times without one; else that of the file's last change
  bool dropHost = false;              // leave out the names of machines
  bool skip = false;                  // leave out what cannot be read
  LongText longText = LongText::Split;
  bool once = false;   // of messages that several files hold, only those of the file with most of them
  bool quiet = false;  // report only what is wrong
};

inline constexpr std::array<const char*, 12> kImportFormats{"auto",   "log",        "raw",    "json",
                                                            "ndjson", "json-array", "csv",    "tsv",
                                                            "export", "rfc5424",    "syslog", "text"};

struct ImportDraft {
  std::optional<TamLogClient::TimeWords> time;  // nothing: that of the line before
  std::optional<int> offset;                    // minutes ahead of UTC, when the time is to be converted
  std::optional<std::uint32_t> type;
  std::optional<int> severity;  // of syslog
  std::optional<std::string> source;
  std::string host;
  std::string text;
  std::array<std::uint8_t, 8> origin{};
  std::array<std::uint8_t, 4> tail{};
};

class ImportDrafts {
 public:
  struct Entry {
    std::size_t line = 0;
    ImportDraft draft;
  };
  struct Problem {
    std::size_t line = 0;
    std::string text;
  };

  void Add(std::size_t line, ImportDraft draft) { entries.push_back({line, std::move(draft)}); }
  void Refuse(std::size_t line, std::string problem) { problems.push_back({line, std::move(problem)}); }

  std::vector<Entry> entries;
  std::vector<Problem> problems;
};

// Readers of the formats. `bytes` is the whole file.
void ReadJsonDrafts(std::string_view bytes, ImportDrafts& drafts);
void ReadCsvDrafts(std::string_view bytes, const ImportChoice& choice, ImportDrafts& drafts);
void ReadTsvDrafts(std::string_view bytes, const ImportChoice& choice, ImportDrafts& drafts);
void ReadJournalDrafts(std::string_view bytes, ImportDrafts& drafts);
// Lines of text with time stamps: ISO times, RFC 3164 and RFC 5424, also mixed. A line without a time belongs
// to the one before. `newest` is the local time that no time without a year is later than.
void ReadTextDrafts(std::string_view bytes, const ImportChoice& choice, const TamLogClient::TimeWords& newest,
                    ImportDrafts& drafts);

// Parses a line of `-o short` or `-o full` without its time. Returns false, and leaves `draft` unchanged, for
// any other line. Escapes such as \n stay as they were printed.
bool TakeShortHead(std::string_view line, const TamLogClient::TypeNames& names, ImportDraft& draft);

// Sets a field from its text in a table. Returns false, with the reason in `problem`, when it is not valid.
// Fields that the server assigns are ignored.
bool SetDraftField(TamLogClient::Field field, std::string_view value, ImportDraft& draft,
                   std::string& problem);

// Parses a line of RFC 5424 without its line end.
std::optional<ImportDraft> ParseRfc5424Line(std::string_view line);

// Calls `use(line, number)` for each line that is not empty, without its line end; numbers begin with 1.
template <typename Use>
void ForEachLine(std::string_view bytes, const Use& use) {
  for (std::size_t number = 1; !bytes.empty(); ++number) {
    const std::size_t end = bytes.find('\n');
    std::string_view line = bytes.substr(0, end);
    bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!line.empty()) use(line, number);
  }
}

}  // namespace TamLogCtl
