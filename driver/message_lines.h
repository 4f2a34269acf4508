#pragma once

// Messages written as lines of text, as `tamlogdrv put` reads them: time, type, source and text, with a tab
// between two fields. The text is everything behind the third tab.
//
// Time: `YYYY-MM-DD HH:MM:SS` or `YYYY-MM-DD HH:MM:SS.mmm`. Type: a number of 32 bits; the server keeps 0 to
// 3 and drops others. Source and text are passed on as the bytes they are, at most 256 each.

#include <iosfwd>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "records/log_file_format.h"

// A line that is no message; what() names the fault, without the line's number.
class MessageLineError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class LongText {
  kRefuse,    // a source or text of more than 256 bytes is a fault
  kTruncate,  // it is cut to 256 bytes or a little less, never inside a UTF-8 character
};

// One line without its line end. Throws MessageLineError. `origin` and `tail` are zero.
LogMessageBody ParseMessageLine(std::string_view line, LongText longText);

// All lines up to the end; LF and CR LF both end a line. Throws MessageLineError that begins with "line N: ".
std::vector<LogMessageBody> ReadMessageLines(std::istream& input, LongText longText);
