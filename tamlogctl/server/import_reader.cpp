#include "tamlogctl/server/import_reader.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "client/file/log_file_image.h"
#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "client/file/log_recognition.h"
#include "client/format/tsv_text.h"
#include "client/message/hex.h"
#include "client/message/message_body.h"
#include "client/message/time_text.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/json.h"
#include "tamlogctl/base/plain_file.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogFileImage;

// The text's bytes from its "_hex" field where there is one: the text itself cannot hold all bytes.
std::optional<std::string> TextField(const Json& line, const std::string& name) {
  if (const std::string* const digits = line.FindString(name + "_hex")) return TamLogClient::FromHex(*digits);
  const std::string* const text = line.FindString(name);
  return text == nullptr ? std::nullopt : std::optional(*text);
}

bool TakeWords(const JsonArray& list, TamLogClient::TimeWords& words) {
  if (list.size() < 7 || list.size() > words.size()) return false;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const auto word = list[i].AsInteger();
    if (!word) return false;
    words[i] = static_cast<std::int16_t>(*word);
  }
  return true;
}

bool TakeTime(const Json& line, LogMessageBody& body) {
  TamLogClient::TimeWords words{};
  const Json* const list = line.Find("time_words");
  if (list != nullptr && list->AsArray() != nullptr) {
    if (!TakeWords(*list->AsArray(), words)) return false;
  } else {
    const std::string* const text = line.FindString("time");
    const auto parsed = text == nullptr ? std::nullopt : TamLogClient::ParseTime(*text);
    if (!parsed) return false;
    words = *parsed;
  }
  TamLogClient::SetTime(body, words);
  return true;
}

template <std::size_t size>
void TakeBytes(const Json& line, const char* name, std::uint8_t (&field)[size]) {
  const std::string* const digits = line.FindString(name);
  if (digits == nullptr) return;
  const auto bytes = TamLogClient::FromHex(*digits);
  if (bytes && bytes->size() == size) std::memcpy(field, bytes->data(), size);
}

std::optional<LogMessageBody> FromJson(const std::string& text, std::string& problem) {
  const auto line = ParseJson(text);
  LogMessageBody body{};
  if (!line || line->AsObject() == nullptr) {
    problem = "expected a JSON object";
    return std::nullopt;
  }
  if (!TakeTime(*line, body)) {
    problem = "expected \"time\":\"YYYY-MM-DDTHH:MM:SS.mmm\" without a zone";
    return std::nullopt;
  }
  const Json* const member = line->Find("type");
  const auto type = member == nullptr ? std::nullopt : member->AsUnsigned();
  if (!type || *type >= kMessageTypes) {
    problem = "expected \"type\" from 0 to 3";
    return std::nullopt;
  }
  body.type = static_cast<std::uint32_t>(*type);
  const auto source = TextField(*line, "source");
  const auto message = TextField(*line, "text");
  if (!source || !message || !TamLogClient::FillTexts(*source, *message, body)) {
    problem = "expected \"source\" and \"text\" of at most 256 bytes each";
    return std::nullopt;
  }
  TakeBytes(*line, "origin", body.origin);
  TakeBytes(*line, "tail", body.tail);
  return body;
}

std::optional<LogMessageBody> FromTsv(const std::string& line, std::string& problem) {
  auto draft = TamLogClient::ParseTsvLine(line, problem);
  if (!draft) return std::nullopt;
  if (!TamLogClient::FillTexts(draft->source, draft->text, draft->body)) {
    problem = "source and text have at most 256 bytes each";
    return std::nullopt;
  }
  return draft->body;
}

void ReadLines(std::string_view bytes, bool json, ImportSource& source) {
  for (std::size_t number = 1; !bytes.empty(); ++number) {
    const std::size_t end = bytes.find('\n');
    std::string line(bytes.substr(0, end));
    bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    std::string problem;
    const auto body = json ? FromJson(line, problem) : FromTsv(line, problem);
    if (body) {
      source.messages.push_back(*body);
      continue;
    }
    if (source.unreadable++ == 0) source.problem = "line " + std::to_string(number) + ": " + problem;
    source.exitCode = kUsage;
  }
}

void ReadLog(const std::string& bytes, ImportSource& source) {
  const LogFileImage image(bytes);
  if (const std::string why = TamLogClient::WhyNoLog(image); !why.empty()) {
    source.problem = ProblemOf(TamLogClient::Status::NotALog, why);
    source.exitCode = kNotALog;
    return;
  }
  const auto plan = PlanRepair(image);
  for (const auto& saved : plan.oldestFirst) source.messages.push_back(SavedMessageOf(image, saved).body);
  if (VerifyLogFile(image, {.most = 0}).Damage() == 0) return;
  source.unreadable = static_cast<std::size_t>(plan.lost);
  source.problem = "is damaged; see: tamlogctl verify";
  source.exitCode = kDamaged;
}

// Lines of text have no zero byte; a log file has one in its header.
std::string Guess(const std::string& bytes) {
  if (bytes.substr(0, kSlotsOffset).find('\0') != std::string::npos) return "log";
  const std::size_t first = bytes.find_first_not_of(" \t\r\n");
  return first != std::string::npos && bytes[first] == '{' ? "json" : "tsv";
}

}  // namespace

ImportSource ReadImport(const std::string& path, const std::string& format) {
  ImportSource source;
  std::string bytes;
  if (const auto status = TamLogClient::ReadFileBytes(path, bytes); status != TamLogClient::Status::Ok) {
    source.problem = ProblemOf(status);
    source.exitCode = ExitCodeOf(status);
    return source;
  }
  const std::string kind = format == "auto" ? Guess(bytes) : format;
  if (kind == "log") {
    ReadLog(bytes, source);
  } else {
    ReadLines(bytes, kind == "json", source);
  }
  return source;
}

int ReadImports(const std::vector<std::string>& paths, const std::string& format,
                std::vector<LogMessageBody>& messages) {
  int exitCode = kDone;
  for (const std::string& path : paths) {
    const PlainFile& file = PlainFileOf(path);
    if (!file.Readable()) return file.exitCode;
    exitCode = WorseOf(exitCode, file.exitCode);
    const ImportSource source = ReadImport(file.path, format);
    if (source.exitCode != kDone) {
      Say(path + ": " + source.problem +
          (source.unreadable > 1 ? " (and " + std::to_string(source.unreadable - 1) + " more)" : ""));
      if (source.exitCode != kDamaged) return source.exitCode;
      exitCode = kDamaged;
    }
    messages.insert(messages.end(), source.messages.begin(), source.messages.end());
  }
  std::stable_sort(messages.begin(), messages.end(),
                   [](const auto& left, const auto& right) { return TimeKey(left) < TimeKey(right); });
  return exitCode;
}

}  // namespace TamLogCtl
