#include "tests/client/format/nasty_messages.h"

#include <cstring>
#include <string>

#include "tests/support/ring_model.h"

namespace TamLogTest {

namespace {

class Builder {
 public:
  LogMessage& Add(const std::string& source, const std::string& text, std::uint32_t type = 0) {
    const auto count = static_cast<std::int32_t>(messages.size());
    LogMessage message{};
    message.sequence = 4711 + messages.size();
    message.body = MakeBody(11045678 + count * 1001, text, source, type);
    std::memcpy(message.body.origin, "origin-", 7);
    message.body.origin[7] = static_cast<std::uint8_t>(count);
    std::memcpy(message.body.tail, "tail", 4);
    messages.push_back(message);
    return messages.back();
  }

  std::vector<LogMessage> messages;
};

}  // namespace

std::vector<LogMessage> NastyMessages() {
  Builder to;
  to.Add("Camera", "Exposure 12 ms", 2);
  to.Add("", "");
  to.Add(std::string(256, 'S'), std::string(256, 't'), 1);
  to.Add("Stage", "two\nlines\r\nand\ttabs\t", 3);
  to.Add("Terminal", "\x1b[2J\x1b]0;owned\x07 \x01\x1f\x7f", 1);
  to.Add("Quotes", R"(say "a,b"; 'c' \n {"json": [1]} = ]>)");
  to.Add("Umlaut", "K\xC3\xA4se \xE2\x82\xAC \xF0\x9F\x98\x80", 2);
  to.Add("L\xE4ser", "gr\xFC\xDF", 2);
  to.Add("Broken", "\xFF\xFE cut \xE2\x82", 3);
  to.Add("Overlong", "\xC0\xAF surrogate \xED\xA0\x80 beyond \xF4\x90\x80\x80");
  to.Add("C1",
         "\xC2\x9B"
         "31m red \xC2\x85 next \xC2\xA0");
  to.Add("Two Words=1", "# -- =leading; trailing space ");
  to.Add("Spare", "the eighth word", 1).body.timestamp[7] = -9;
  to.Add("Leap", "the last day of a leap February").body.timestamp[0] = 2028;
  to.messages.back().body.timestamp[1] = 2;
  to.messages.back().body.timestamp[2] = 29;
  LogMessage& early = to.Add("Year1", "long ago");
  early.body.timestamp[0] = 1;
  LogMessage& impossible = to.Add("Calendar", "month 13, day 40", 3);
  impossible.body.timestamp[1] = 13;
  impossible.body.timestamp[2] = 40;
  LogMessage& negative = to.Add("Calendar", "negative", 3);
  for (std::size_t i = 0; i < 7; ++i) negative.body.timestamp[i] = -1;
  return to.messages;
}

}  // namespace TamLogTest
