#pragma once

// What the readers of the single formats find, before it becomes messages. Each reader parses the bytes of
// one file and passes on one draft for each message, with the number of its line.

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
#include "tamlogctl/server/import_bytes.h"
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

// Takes what a reader finds, in the order of the file.
class DraftTaker {
 public:
  DraftTaker() = default;
  virtual ~DraftTaker() = default;
  DraftTaker(const DraftTaker&) = delete;
  DraftTaker& operator=(const DraftTaker&) = delete;

  virtual void Add(std::size_t line, ImportDraft draft) = 0;
  virtual void Refuse(std::size_t line, std::string problem) = 0;
  // Returns whether nothing more is wanted.
  virtual bool Enough() const { return false; }
};

// Holds the drafts of some lines.
class ImportDrafts : public DraftTaker {
 public:
  struct Entry {
    std::size_t line = 0;
    ImportDraft draft;
  };
  struct Problem {
    std::size_t line = 0;
    std::string text;
  };

  void Add(std::size_t line, ImportDraft draft) override { entries.push_back({line, std::move(draft)}); }
  void Refuse(std::size_t line, std::string problem) override {
    problems.push_back({line, std::move(problem)});
  }

  std::vector<Entry> entries;
  std::vector<Problem> problems;
};

// Readers of the formats. They read from the beginning of the file on and stop when it is enough.
void ReadJsonDrafts(ImportBytes& bytes, DraftTaker& drafts);
void ReadCsvDrafts(ImportBytes& bytes, const ImportChoice& choice, DraftTaker& drafts);
void ReadTsvDrafts(ImportBytes& bytes, const ImportChoice& choice, DraftTaker& drafts);
void ReadJournalDrafts(ImportBytes& bytes, DraftTaker& drafts);
// Lines of text with time stamps: ISO times, RFC 3164 and RFC 5424, also mixed. A line without a time belongs
// to the one before. `newest` is the local time that no time without a year is later than.
void ReadTextDrafts(ImportBytes& bytes, const ImportChoice& choice, const TamLogClient::TimeWords& newest,
                    DraftTaker& drafts);

// Parses a line of `-o short` or `-o full` without its time. Returns false, and leaves `draft` unchanged, for
// any other line. Escapes such as \n stay as they were printed.
bool TakeShortHead(std::string_view line, const TamLogClient::TypeNames& names, ImportDraft& draft);

// Sets a field from its text in a table. Returns false, with the reason in `problem`, when it is not valid.
// Fields that the server assigns are ignored.
bool SetDraftField(TamLogClient::Field field, std::string_view value, ImportDraft& draft,
                   std::string& problem);

// Parses a line of tsv without its line end.
void ReadTsvLine(std::string_view line, std::size_t number, const ImportChoice& choice, DraftTaker& drafts);

// Parses a line of RFC 5424 without its line end.
std::optional<ImportDraft> ParseRfc5424Line(std::string_view line);

}  // namespace TamLogCtl
