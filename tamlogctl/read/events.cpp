#include "tamlogctl/read/events.h"

#include "tamlogctl/base/console.h"

namespace TamLogCtl {

void EventTeller::Tell(const char* event, const std::string& words) const {
  if (style == EventStyle::Text) Say(words);
  if (style == EventStyle::Json) WriteErr(std::string("{\"event\":\"") + event + "\"}\n");
}

void EventTeller::Lost(const TamLogClient::Loss& loss) const {
  const std::string least = std::to_string(loss.least);
  if (style == EventStyle::Json) {
    WriteErr(loss.Exact() ? "{\"event\":\"lost\",\"count\":" + least + "}\n"
                          : "{\"event\":\"lost\",\"count\":null,\"at_least\":" + least + "}\n");
  } else if (style == EventStyle::Text && loss.Exact()) {
    Say(least + (loss.least == 1 ? " message was" : " messages were") + " gone before they could be read");
  } else if (style == EventStyle::Text) {
    Say("messages may have been lost before they could be read; their number is not known" +
        (loss.least > 0 ? " (at least " + least + ")" : std::string()));
  }
}

void EventTeller::CursorIs(const std::string& cursor) const {
  if (style == EventStyle::Json) {
    WriteErr(R"({"event":"cursor","cursor":")" + cursor + "\"}\n");
  } else {
    WriteErr("cursor: " + cursor + "\n");
  }
}

}  // namespace TamLogCtl
