#pragma once

// Options that several verbs have in common. Each function refers to the place where the values go, which has
// to outlive the options.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tamlogctl/commands/verb.h"

namespace TamLogCtl {

inline constexpr std::uint64_t kMostMessages = 1000000;  // that a log can hold

// The headings of the help under which shared options stand.
inline constexpr const char* kOptionsOfAll = "Options of every verb";
inline constexpr const char* kWriting = "Writing messages";
inline constexpr const char* kSelecting = "Choosing messages";
inline constexpr const char* kPosition = "Context and cursors";
inline constexpr const char* kFollowing = "Following";

struct CommonOptions;
struct MessageLimit;
struct OutputOptions;
struct ReadingOptions;
struct SelectionOptions;

// --color and --timeout, which every verb has.
std::vector<Option> OptionsOfAll(CommonOptions& to);

// -o, --fields, --tz and those of NamingOptions: how messages are written.
std::vector<Option> WritingOptions(OutputOptions& to);

// --type-names and --encoding, for verbs with formats of their own.
std::vector<Option> NamingOptions(OutputOptions& to);

// -s, -x, -t, -g, -S and so on: which messages are wanted.
std::vector<Option> SelectingOptions(SelectionOptions& to);

// -n N, +N or all.
Option LimitOption(MessageLimit& to, std::string purpose);

// -n N or all, of verbs that follow: there is no first message to begin with.
Option CountOption(std::optional<std::size_t>& last, std::string purpose);

// -A, -B, -C, --cursor-file, --after-cursor, --show-cursor, --events.
std::vector<Option> PositionOptions(ReadingOptions& to);

// --no-pager
Option PagerOption(bool& to);

// -q
Option QuietOption(bool& to);

// -o text|json
Option JsonOption(bool& to, std::string purpose = "Format: text or json");

// Stores the name of a file to read, or the files that match it where the program expands wildcards.
Take Files(std::vector<std::string>& to);

// --file and FILE, for each copied log that is read instead of the running server's.
std::vector<Option> FileOptions(std::vector<std::string>& to, const std::string& purpose);
Option FileOption(std::vector<std::string>& to, std::string purpose);

// --interval, --ordered and --for, of verbs that follow.
std::vector<Option> FollowingOptions(std::uint32_t& intervalMs, bool& ordered,
                                     std::optional<double>& forSeconds);

}  // namespace TamLogCtl
