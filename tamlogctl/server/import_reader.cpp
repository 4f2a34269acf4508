#include "tamlogctl/server/import_reader.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "client/file/file_bytes.h"
#include "client/file/file_path.h"
#include "client/file/log_file_image.h"
#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "client/file/log_recognition.h"
#include "client/message/local_time.h"
#include "client/message/log_message_view.h"
#include "client/message/message_body.h"
#include "client/message/text_split.h"
#include "client/message/time_zone.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/plain_file.h"
#include "tamlogctl/server/stamp_text.h"

namespace TamLogCtl {

namespace {

using TamLogClient::FileBytes;
using TamLogClient::LogFileImage;
using TamLogClient::TimeWords;

constexpr std::size_t kLongestField = kTextSize - 1;
constexpr std::size_t kMostProblems = 20;  // that are reported one by one

// Returns whether it is the number of a rotated file: ".1"
bool IsNumber(const std::string& extension) {
  return extension.size() > 1 && extension.find_first_not_of("0123456789", 1) == std::string::npos;
}

// Returns the name that the file had before it was rotated and compressed: "dpkg.log" of "dpkg.log.2.gz".
std::filesystem::path PlainName(const std::string& path) {
  if (path == "-") return "stdin";
  std::filesystem::path name = TamLogClient::PathOf(path).filename();
  if (name.extension() == ".gz" || name.extension() == ".xz") name = name.stem();
  return IsNumber(name.extension().string()) ? name.stem() : name;
}

std::string Utf8Of(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

// Finds the first draft with a time.
class FirstDated : public DraftTaker {
 public:
  void Add(std::size_t /*line*/, ImportDraft draft) override {
    if (draft.time && !found) found = std::move(draft);
  }
  void Refuse(std::size_t /*line*/, std::string /*problem*/) override {}
  bool Enough() const override { return found.has_value(); }

  std::optional<ImportDraft> found;
};

// Makes messages from the drafts of one file.
class DraftReader : public DraftTaker {
 public:
  using FindFirst = std::function<std::optional<ImportDraft>()>;

  // `findFirst` returns the first draft of the file that has a time.
  DraftReader(const std::string& path, const ImportChoice& chosen, const TakeMessage& taker,
              FindFirst findFirst, ImportSource& result)
      : choice(chosen), take(taker), first(std::move(findFirst)), source(result) {
    usualSource = choice.source.empty() ? Utf8Of(PlainName(path).stem()) : choice.source;
  }

  void Add(std::size_t line, ImportDraft draft) override;
  void Refuse(std::size_t line, std::string problem) override;
  bool Enough() const override { return hasNoTime; }

  // Reports what no draft was made of.
  void Finish();

 private:
  bool Make(const ImportDraft& draft, const TimeWords& time, std::string& problem);
  void Report(std::size_t line, const std::string& problem);
  TimeWords TimeOf(const ImportDraft& draft) const;
  std::uint32_t TypeOf(const ImportDraft& draft) const;
  std::string SourceOf(const ImportDraft& draft) const;
  std::vector<std::string> PiecesOf(const std::string& text) const;

  const ImportChoice& choice;
  const TakeMessage& take;
  const FindFirst first;
  ImportSource& source;
  std::string usualSource;
  std::optional<ImportDraft> before;           // the last one with a time
  bool hasNoTime = false;                      // no line of the file
  std::vector<ImportDrafts::Problem> refused;  // the first ones
  std::size_t allRefused = 0;
};

// A line without a time is part of the line before, at the beginning of a file of the first one that has one.
void DraftReader::Add(std::size_t line, ImportDraft draft) {
  if (draft.time) {
    before = std::move(draft);
  } else {
    if (!before) before = first();
    hasNoTime = !before.has_value();
    if (hasNoTime) return Report(line, "no line of the file begins with a time");
    before->text = std::move(draft.text);
    if (source.continued++ == 0) source.firstContinued = line;
  }
  std::string problem;
  if (!Make(*before, TimeOf(*before), problem)) Report(line, problem);
}

void DraftReader::Refuse(std::size_t line, std::string problem) {
  if (allRefused++ < kMostProblems) refused.push_back({line, std::move(problem)});
}

void DraftReader::Finish() {
  if (hasNoTime) return;
  for (const auto& [line, problem] : refused) Report(line, problem);
  source.unreadable += allRefused - refused.size();
}

void DraftReader::Report(std::size_t line, const std::string& problem) {
  if (source.unreadable++ < kMostProblems)
    source.problems.push_back("line " + std::to_string(line) + ": " + problem);
}

TimeWords DraftReader::TimeOf(const ImportDraft& draft) const {
  const TimeWords& words = *draft.time;
  if (!draft.offset || choice.keepZone || !TamLogClient::IsRealTime(words)) return words;
  TimeWords local = LocalTimeAt(TamLogClient::MillisecondsSince1970(words, *draft.offset));
  local[7] = words[7];
  return local;
}

// A severity becomes the type that the user gave the severity's name.
std::uint32_t DraftReader::TypeOf(const ImportDraft& draft) const {
  if (draft.type) return *draft.type;
  for (std::uint32_t type = 0; draft.severity && type < kMessageTypes; ++type) {
    if (choice.typeNames.Severity(type) == draft.severity) return type;
  }
  return choice.type;
}

std::string DraftReader::SourceOf(const ImportDraft& draft) const {
  const std::string name = draft.source.value_or(usualSource);
  return draft.host.empty() || choice.dropHost ? name : draft.host + "/" + name;
}

std::vector<std::string> DraftReader::PiecesOf(const std::string& text) const {
  if (choice.longText == LongText::Split) return TamLogClient::SplitText(text, kLongestField);
  return {choice.longText == LongText::Truncate ? TamLogClient::TruncateText(text, kLongestField) : text};
}

bool DraftReader::Make(const ImportDraft& draft, const TimeWords& time, std::string& problem) {
  LogMessageBody body{};
  TamLogClient::SetTime(body, time);
  body.type = TypeOf(draft);
  std::memcpy(body.origin, draft.origin.data(), draft.origin.size());
  std::memcpy(body.tail, draft.tail.data(), draft.tail.size());
  const std::string name = SourceOf(draft);
  problem = name.size() > kLongestField
                ? "the source has " + std::to_string(name.size()) + " bytes, 256 are allowed"
                : "source and text have at most 256 bytes each and no zero byte";
  for (const std::string& piece : PiecesOf(draft.text)) {
    if (!TamLogClient::FillTexts(name, piece, body)) return false;
    take(body);
  }
  return true;
}

void ReadLog(FileBytes& bytes, const TakeMessage& take, ImportSource& source) {
  const LogFileImage image(bytes);
  if (const std::string why = TamLogClient::WhyNoLog(image); !why.empty()) {
    source.problems.push_back(ProblemOf(TamLogClient::Status::NotALog, why));
    source.exitCode = kNotALog;
    return;
  }
  const auto plan = PlanRepair(image);
  for (const auto& saved : plan.oldestFirst) take(SavedMessageOf(image, saved).body);
  if (VerifyLogFile(image, {.most = 0}).Damage() == 0) return;
  source.unreadable = static_cast<std::size_t>(plan.lost);
  source.problems.emplace_back("is damaged; see: tamlogctl verify");
  source.exitCode = kDamaged;
}

void ReadRaw(FileBytes& bytes, const TakeMessage& take, ImportSource& source) {
  std::uint64_t offset = 0;
  for (std::size_t slot = 0; offset < bytes.Size(); ++slot, offset += sizeof(LogMessage)) {
    LogMessage message{};
    const bool whole = bytes.Copy(offset, &message, sizeof(message)) == sizeof(message);
    if (whole && !TamLogClient::LogMessageView(message).Damaged()) {
      take(message.body);
    } else if (source.unreadable++ < kMostProblems) {
      source.problems.push_back("message " + std::to_string(slot + 1) +
                                (whole ? ": no message of a log" : ": the file ends within it"));
    }
  }
}

bool IsJournal(std::string_view bytes) {
  const std::string_view head = bytes.substr(0, 4096);
  return head.starts_with("__CURSOR=") || head.starts_with("__REALTIME_TIMESTAMP=") ||
         head.find("\n__REALTIME_TIMESTAMP=") != std::string_view::npos;
}

// Whether a head line of column names stands before lines that begin with a time, or the user named the
// columns.
bool IsCsv(std::string_view head, const ImportChoice& choice) {
  ImportDrafts drafts;
  if (head.find_first_of(",;\t") == std::string_view::npos) return false;
  FileBytes memory(head);
  ImportBytes bytes(memory);
  ReadCsvDrafts(bytes, choice, drafts);
  return drafts.problems.empty();
}

bool IsTsv(std::string_view line, const ImportChoice& choice) {
  ImportDrafts drafts;
  if (!line.empty()) ReadTsvLine(line, 1, choice, drafts);
  return drafts.problems.empty() && !drafts.entries.empty();
}

// Lines of text have no zero byte; a log file has one in its header, and a slot in its texts.
std::string Guess(const std::string& path, FileBytes& file, const ImportChoice& choice) {
  constexpr std::size_t kExamined = std::size_t{1} << 20U;
  ImportBytes bytes(file);
  const std::string_view head = bytes.Window(kExamined);
  if (IsJournal(head)) return "export";
  const bool binary = head.substr(0, std::max<std::size_t>(kSlotsOffset, sizeof(LogMessage))).find('\0') !=
                      std::string_view::npos;
  if (binary) return file.Size() % sizeof(LogMessage) == 0 ? "raw" : "log";
  const std::string extension = Utf8Of(PlainName(path).extension());
  if (extension == ".csv" || extension == ".tsv") return extension.substr(1);
  const std::size_t first = head.find_first_not_of(" \t\r\n");
  const std::string_view text = head.substr(std::min(first, head.size()));
  if (text.starts_with('{') || text.starts_with("[\n") || text.starts_with("[\r\n") || text.starts_with("[{"))
    return "json";
  if (IsTsv(text.substr(0, text.find_first_of("\r\n")), choice)) return "tsv";
  return IsCsv(text.substr(0, text.find('\n')), choice) ? "csv" : "text";
}

// Returns the time after which no line without a year was written.
TimeWords NewestOf(const std::string& path, const ImportChoice& choice) {
  if (choice.year) return {static_cast<std::int16_t>(*choice.year), 12, 31, 23, 59, 59, 999, 0};
  std::error_code error;
  const auto written = std::filesystem::last_write_time(TamLogClient::PathOf(path), error);
  if (error) return TamLogClient::LocalNow();
  const auto age = std::filesystem::file_time_type::clock::now() - written;
  const auto moment = std::chrono::system_clock::now().time_since_epoch() - age;
  return LocalTimeAt(std::chrono::duration_cast<std::chrono::milliseconds>(moment).count());
}

void ReadDraftsOf(const std::string& path, const std::string& format, const ImportChoice& choice,
                  FileBytes& file, DraftTaker& drafts) {
  ImportBytes bytes(file);
  if (format.find("json") != std::string::npos) {
    ReadJsonDrafts(bytes, drafts);
  } else if (format == "csv") {
    ReadCsvDrafts(bytes, choice, drafts);
  } else if (format == "tsv") {
    ReadTsvDrafts(bytes, choice, drafts);
  } else if (format == "export") {
    ReadJournalDrafts(bytes, drafts);
  } else {
    ReadTextDrafts(bytes, choice, NewestOf(path, choice), drafts);
  }
}

void ReadDrafts(const std::string& path, FileBytes& file, const ImportChoice& choice, const TakeMessage& take,
                ImportSource& source) {
  const auto findFirst = [&] {
    FirstDated dated;
    ReadDraftsOf(path, source.format, choice, file, dated);
    return dated.found;
  };
  DraftReader reader(path, choice, take, findFirst, source);
  ReadDraftsOf(path, source.format, choice, file, reader);
  reader.Finish();
}

void ReportProblems(const std::string& path, const ImportSource& source, bool quiet) {
  const std::string name = ReadName(path);
  const std::string begin = name + (source.exitCode == kNotALog ? " " : ": ");
  for (const std::string& problem : source.problems) Say(begin + problem);
  if (source.exitCode != kDamaged && source.unreadable > source.problems.size() && !source.problems.empty())
    Say(name + ": and " + std::to_string(source.unreadable - source.problems.size()) + " more");
  if (source.continued > 0 && !quiet)
    Say(name + ": " + Counted(source.continued, "line") + " without a time " +
        (source.continued == 1 ? "has" : "have") + " that of the line before; the first is line " +
        std::to_string(source.firstContinued));
}

}  // namespace

ImportSource ReadImport(const std::string& path, const ImportChoice& choice, const TakeMessage& take) {
  ImportSource source;
  const PlainFile& plain = PlainFileOf(path);
  source.exitCode = plain.exitCode;
  if (!plain.Readable()) return source;
  FileBytes file;
  TamLogClient::FileStatus status = file.Open(plain.path);
  if (status == TamLogClient::Status::Ok) {
    source.format = choice.format == "auto" ? Guess(path, file, choice) : choice.format;
    if (source.format == "log") {
      ReadLog(file, take, source);
    } else if (source.format == "raw") {
      ReadRaw(file, take, source);
    } else {
      ReadDrafts(path, file, choice, take, source);
    }
    status = file.Failure();
  }
  if (status != TamLogClient::Status::Ok) {
    source.problems.push_back(ProblemOf(status));
    source.exitCode = ExitCodeOf(status);
  } else if (source.unreadable > 0 && source.format != "log") {
    source.exitCode = WorseOf(source.exitCode, choice.skip ? kNegative : kUsage);
  }
  return source;
}

int ReadImports(const std::vector<std::string>& paths, const ImportChoice& choice, MessageSpool& messages) {
  int exitCode = kDone;
  for (const std::string& path : paths) {
    messages.BeginFile();
    const ImportSource source =
        ReadImport(path, choice, [&messages](const LogMessageBody& body) { messages.Add(body); });
    ReportProblems(path, source, choice.quiet);
    if (source.exitCode != kDone && source.exitCode != kDamaged && source.exitCode != kNegative)
      return source.exitCode == kUsage
                 ? Refuse(kUsage, "nothing was done; correct the lines, or leave them out with --skip")
                 : source.exitCode;
    exitCode = WorseOf(exitCode, source.exitCode);
  }
  if (!messages.Sort())
    return Refuse(kOutputFailed, "no temporary file for the messages: " + messages.Problem());
  if (!choice.once) return exitCode;
  const std::vector<std::size_t> twice = messages.LeaveOutRepeated();
  for (std::size_t i = 0; i < paths.size() && !choice.quiet; ++i) {
    if (twice[i] > 0)
      Say(ReadName(paths[i]) + ": " + CountedAre(twice[i], "message") +
          " in an earlier file as well, and taken once");
  }
  return exitCode;
}

}  // namespace TamLogCtl
