#pragma once

// What the command line asked for, as plain data: nothing here knows how it was parsed.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TamLogCtl {

enum class Verb : std::uint8_t { Show, Send, Status, Nothing };
enum class Color : std::uint8_t { Auto, Always, Never };
enum class LongText : std::uint8_t { Refuse, Truncate, Split };

struct ShowOptions {
  std::optional<std::size_t> last;  // nothing: all
  bool reverse = false;
  bool follow = false;
  std::vector<std::string> files;  // none: the running server's log
  std::string format = "short";
  std::vector<std::string> sources;
  std::vector<std::string> excludedSources;
  std::string types;
  std::string pattern;
  bool fixedPattern = false;
  bool ignoreCase = false;
  std::string since;
  std::string until;
  std::uint32_t intervalMs = 100;
  std::optional<double> forSeconds;
  bool quiet = false;
};

struct SendOptions {
  std::string argument;  // the text, or with `input` the name of a file
  bool hasArgument = false;
  std::string source = "tamlogctl";
  std::uint32_t type = 0;
  std::string time;
  std::string input;  // "", "text" or "tsv"
  LongText longText = LongText::Refuse;
  bool confirm = false;
};

struct StatusOptions {
  bool json = false;
};

struct Options {
  Verb verb = Verb::Nothing;
  Color color = Color::Auto;
  std::uint32_t timeoutMs = 5000;
  ShowOptions show;
  SendOptions send;
  StatusOptions status;
};

}  // namespace TamLogCtl
