#pragma once

// Reads messages from lines of text for `tamlogdrv put`: time, type, source and text, separated by tabs. The
// text is everything after the third tab.
//
// Time: `YYYY-MM-DD HH:MM:SS` or `YYYY-MM-DD HH:MM:SS.mmm`. Type: a number of 32 bits; the server keeps 0 to
// 3 and drops others. Source and text are passed on as the bytes they are, at most 256 each.

#include <iosfwd>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "records/log_file_format.h"

// An invalid line; what() names the fault, without the line's number.
class MessageLineError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class LongText {
  kRefuse,    // a source or text of more than 256 bytes is a fault
  kTruncate,  // it is truncated to 256 bytes or a little less, never inside a UTF-8 character
};

// Parses one line without its line end; `origin` and `tail` are zero. Throws MessageLineError.
LogMessageBody ParseMessageLine(std::string_view line, LongText longText);

// Reads all lines to the end of the input; LF and CR LF both end a line. Throws a MessageLineError that
// begins with "line N: ".
std::vector<LogMessageBody> ReadMessageLines(std::istream& input, LongText longText);
