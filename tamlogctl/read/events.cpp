#include "tamlogctl/read/events.h"

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"

namespace TamLogCtl {

void EventReporter::Report(const char* event, const std::string& text) const {
  if (style == EventStyle::Text) Say(text);
  if (style == EventStyle::Json) WriteErr(std::string("{\"event\":\"") + event + "\"}\n");
}

void EventReporter::ReportLost(const TamLogClient::Loss& loss) const {
  const std::string least = std::to_string(loss.least);
  if (style == EventStyle::Json) {
    WriteErr(loss.Exact() ? "{\"event\":\"lost\",\"count\":" + least + "}\n"
                          : "{\"event\":\"lost\",\"count\":null,\"at_least\":" + least + "}\n");
  } else if (style == EventStyle::Text && loss.Exact()) {
    Say(Counted(loss.least, "message") + " lost before being read");
  } else if (style == EventStyle::Text) {
    Say("messages may have been lost before being read; their number is unknown" +
        (loss.least > 0 ? " (at least " + least + ")" : std::string()));
  }
}

void EventReporter::ReportCursor(const std::string& cursor) const {
  if (style == EventStyle::Json) {
    WriteErr(R"({"event":"cursor","cursor":")" + cursor + "\"}\n");
  } else {
    WriteErr("cursor: " + cursor + "\n");
  }
}

}  // namespace TamLogCtl
