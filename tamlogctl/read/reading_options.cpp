#include "tamlogctl/read/reading_options.h"

#include <CLI/CLI.hpp>
#include <charconv>

#include "tamlogctl/base/choice_option.h"

namespace TamLogCtl {

namespace {

// "all" or a number of messages.
std::optional<std::size_t> CountOf(const std::string& text) {
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

std::string CheckCount(const std::string& text) {
  return CountOf(text) || text == "all" ? "" : "'" + text + "' is neither a number nor 'all'";
}

void Refuse(const char* option, const char* mend) {
  throw CLI::ValidationError(option, mend);
}

}  // namespace

void DefineCount(CLI::App& verb, std::optional<std::size_t>& last, const char* purpose) {
  verb.add_option_function<std::string>(
          "-n,--lines", [&last](const std::string& text) { last = CountOf(text); }, purpose)
      ->check(CheckCount)
      ->option_text("N|all");
}

void DefineContext(CLI::App& verb, ReadingOptions& to) {
  const auto number = [&verb](const char* name, std::size_t& target, const char* purpose) {
    verb.add_option(name, target, purpose)->check(CLI::Range(0, 1000000))->option_text("N");
  };
  number("-A,--after-context", to.after, "Also N messages after each that matches");
  number("-B,--before-context", to.before, "Also N messages before each that matches");
  verb.add_option_function<std::size_t>(
          "-C,--context", [&to](std::size_t count) { to.before = to.after = count; },
          "Both (short, full and cat have -- between what does not follow on)")
      ->check(CLI::Range(0, 1000000))
      ->option_text("N");
}

void DefineCursors(CLI::App& verb, ReadingOptions& to) {
  verb.add_option("--cursor-file", to.cursorFile,
                  "Go on where this file says, and note there how far it came")
      ->option_text("FILE");
  verb.add_option("--after-cursor", to.afterCursor, "Only what is dated after the cursor's message")
      ->option_text("CURSOR");
  verb.add_flag("--show-cursor", to.showCursor, "At the end print the newest message's cursor on stderr");
}

void DefineEvents(CLI::App& verb, ReadingOptions& to) {
  DefineChoice(verb, "--events", to.events,
               "How losses, restarts and clears are told on stderr (stderr: in words)",
               {{"stderr", EventStyle::Text}, {"json", EventStyle::Json}, {"none", EventStyle::None}});
}

void CheckCursors(const ReadingOptions& options) {
  const bool cursor = !options.cursorFile.empty() || !options.afterCursor.empty() || options.showCursor;
  if (!options.cursorFile.empty() && !options.afterCursor.empty()) {
    Refuse("--after-cursor", "cannot be used with --cursor-file, which says by itself where to go on");
  }
  if (cursor && options.files.size() > 1) Refuse("--file", "a cursor belongs to one log; name one file only");
  if (!options.cursorFile.empty() && !options.selection.until.empty()) {
    Refuse("-U", "cannot be used with --cursor-file: what is newer would never be shown");
  }
}

bool IsTextFormat(const ReadingOptions& options) {
  const std::string& format = options.output.format;
  return format == "short" || format == "full" || format == "cat";
}

}  // namespace TamLogCtl
