#include "tamlogctl/server/import_reader.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "client/file/log_file_image.h"
#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "client/format/tsv_text.h"
#include "client/message/message_body.h"
#include "client/message/time_text.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogFileImage;
using JsonLine = nlohmann::json;

int HexDigit(char digit) {
  constexpr std::string_view digits = "0123456789abcdef";
  const std::size_t value = digits.find(digit >= 'A' && digit <= 'F' ? static_cast<char>(digit + 32) : digit);
  return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

std::optional<std::string> FromHex(const std::string& hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    const int high = HexDigit(hex[i]);
    const int low = HexDigit(hex[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes += static_cast<char>(static_cast<unsigned char>(high * 16 + low));
  }
  return bytes;
}

// The text's bytes from its "_hex" field where there is one: the text itself cannot hold all bytes.
std::optional<std::string> TextField(const JsonLine& line, const char* name) {
  const auto raw = line.find(std::string(name) + "_hex");
  if (raw != line.end() && raw->is_string()) return FromHex(raw->get<std::string>());
  const auto text = line.find(name);
  if (text == line.end() || !text->is_string()) return std::nullopt;
  return text->get<std::string>();
}

bool TakeTime(const JsonLine& line, LogMessageBody& body) {
  TamLogClient::TimeWords words{};
  if (const auto raw = line.find("time_words"); raw != line.end() && raw->is_array()) {
    if (raw->size() < 7 || raw->size() > words.size()) return false;
    for (std::size_t i = 0; i < raw->size(); ++i) {
      if (!(*raw)[i].is_number_integer()) return false;
      words[i] = (*raw)[i].get<std::int16_t>();
    }
  } else {
    const auto text = line.find("time");
    if (text == line.end() || !text->is_string()) return false;
    const auto parsed = TamLogClient::ParseTime(text->get<std::string>());
    if (!parsed) return false;
    words = *parsed;
  }
  TamLogClient::SetTime(body, words);
  return true;
}

template <std::size_t size>
void TakeBytes(const JsonLine& line, const char* name, std::uint8_t (&field)[size]) {
  const auto hex = line.find(name);
  if (hex == line.end() || !hex->is_string()) return;
  const auto bytes = FromHex(hex->get<std::string>());
  if (bytes && bytes->size() == size) std::memcpy(field, bytes->data(), size);
}

std::optional<LogMessageBody> FromJson(const std::string& text, std::string& problem) {
  const JsonLine line = JsonLine::parse(text, nullptr, false);
  LogMessageBody body{};
  if (!line.is_object()) {
    problem = "expected a JSON object";
    return std::nullopt;
  }
  if (!TakeTime(line, body)) {
    problem = "expected \"time\":\"YYYY-MM-DDTHH:MM:SS.mmm\" without a zone";
    return std::nullopt;
  }
  const auto type = line.find("type");
  if (type == line.end() || !type->is_number_unsigned() || type->get<std::uint64_t>() >= kMessageTypes) {
    problem = "expected \"type\" from 0 to 3";
    return std::nullopt;
  }
  body.type = type->get<std::uint32_t>();
  const auto source = TextField(line, "source");
  const auto message = TextField(line, "text");
  if (!source || !message || !TamLogClient::FillTexts(*source, *message, body)) {
    problem = "expected \"source\" and \"text\" of at most 256 bytes each";
    return std::nullopt;
  }
  TakeBytes(line, "origin", body.origin);
  TakeBytes(line, "tail", body.tail);
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
    source.problem = ProblemOf(path, status);
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
    const ImportSource source = ReadImport(path, format);
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
