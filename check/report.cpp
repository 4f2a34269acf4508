#include "check/report.h"

#include <algorithm>
#include <array>

namespace TamLogCheck {

namespace {

constexpr char kHead[] =
    R"(Torvane Log Server: check of a machine

Please mail this report to the maker. "differs": the machine does not do what the documents promise. The report
contains the name of the computer, paths and access lists, but no message of the log and no password.

)";

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(width, text.size() + 1), ' ');
  return text;
}

std::string JsonObject(const Values& values) {
  std::string text = "{";
  for (const auto& [name, value] : values) {
    if (text.size() > 1) text += ", ";
    text += JsonText(name) + ": " + JsonText(value);
  }
  return text + "}";
}

std::string Details(const Result& result) {
  std::string text = LineOf(result) + "\n           " + result.promise + "\n";
  for (const auto& [name, value] : result.verdict.values) {
    text.append("           ").append(name).append(": ").append(value).append("\n");
  }
  return text;
}

}  // namespace

const char* OutcomeText(Outcome outcome) {
  switch (outcome) {
    case Outcome::Holds:
      return "holds";
    case Outcome::Differs:
      return "differs";
    case Outcome::NotTried:
      break;
  }
  return "not tried";
}

std::string LineOf(const Result& result) {
  std::string line = Padded(OutcomeText(result.verdict.outcome), 11) + result.check;
  if (!result.verdict.seen.empty()) line += ": " + result.verdict.seen;
  return line;
}

std::string JsonText(const std::string& text) {
  constexpr std::array<char, 17> kDigits{"0123456789abcdef"};
  std::string quoted = "\"";
  for (const char each : text) {
    const auto byte = static_cast<unsigned char>(each);
    if (byte < 0x20 || byte > 0x7E) {
      quoted += "\\u00";
      quoted += kDigits[byte >> 4U];
      quoted += kDigits[byte & 0xFU];
    } else {
      if (each == '"' || each == '\\') quoted += '\\';
      quoted += each;
    }
  }
  return quoted + "\"";
}

std::size_t Report::Count(Outcome outcome) const {
  return static_cast<std::size_t>(std::ranges::count_if(
      results, [outcome](const Result& result) { return result.verdict.outcome == outcome; }));
}

std::string Report::Summary() const {
  return std::to_string(Count(Outcome::Holds)) + " hold, " + std::to_string(Count(Outcome::Differs)) +
         (Count(Outcome::Differs) == 1 ? " differs, " : " differ, ") +
         std::to_string(Count(Outcome::NotTried)) + " not tried";
}

std::string Report::Text() const {
  std::string text = kHead;
  for (const auto& [name, value] : facts) text.append(Padded(name + ":", 18)).append(value).append("\n");
  text += "\n" + Summary() + "\n";
  for (const std::string& what : left) text.append("NOT RESTORED: ").append(what).append("\n");
  for (const Outcome outcome : {Outcome::Differs, Outcome::NotTried, Outcome::Holds}) {
    if (Count(outcome) > 0) text += "\n";
    for (const Result& result : results) {
      if (result.verdict.outcome == outcome) text += Details(result);
    }
  }
  return text + "\n" + kProgramsLine + "\n" + ForPrograms();
}

std::string Report::ForPrograms() const {
  std::string text = "{\"facts\": " + JsonObject(facts) + "}\n";
  for (const Result& result : results) {
    text += "{\"check\": " + JsonText(result.check) + ", \"promise\": " + JsonText(result.promise) +
            ", \"result\": " + JsonText(OutcomeText(result.verdict.outcome)) +
            ", \"seen\": " + JsonText(result.verdict.seen) +
            ", \"values\": " + JsonObject(result.verdict.values) +
            ", \"ms\": " + std::to_string(result.milliseconds) + "}\n";
  }
  for (const std::string& what : left) text += "{\"not_restored\": " + JsonText(what) + "}\n";
  return text;
}

}  // namespace TamLogCheck
