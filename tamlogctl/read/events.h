#pragma once

// Reports events of the log on stderr while it is read: as text for people, or as JSON for programs, one
// object a line:
//
//   {"event":"lost","count":12}        exactly 12 messages were lost before they could be read
//   {"event":"lost","count":null,"at_least":3}   at least 3 were lost; the exact number is unknown
//   {"event":"cleared"}  {"event":"stopped"}  {"event":"reopened"}  {"event":"blocked"}
//   {"event":"cursor","cursor":"c1..."}          the cursor of the newest message (--show-cursor)
//   {"event":"cursor-gone"}                      the cursor's message is no longer in the log
//   {"event":"late-skipped"}                     messages dated before the cursor's may have been left out

#include <cstdint>
#include <string>

#include "client/log/log_follower.h"

namespace TamLogCtl {

enum class EventStyle : std::uint8_t { Text, Json, None };

class EventReporter {
 public:
  explicit EventReporter(EventStyle chosen) : style(chosen) {}

  void ReportLost(const TamLogClient::Loss& loss) const;
  void ReportCleared() const { Report("cleared", "the log was cleared"); }
  void ReportStopped() const { Report("stopped", "the server has stopped; waiting for it to start again"); }
  void ReportReopened() const { Report("reopened", "the server is running again"); }
  void ReportBlocked() const { Report("blocked", "the server does not admit readers; still trying"); }
  void ReportCursorGone() const {
    Report("cursor-gone",
           "the cursor's message is no longer in the log; showing the messages dated after it");
  }
  void ReportLateSkipped() const {
    Report("late-skipped",
           "messages dated before the cursor's message were written after it and are not shown "
           "(--cursor-file shows them)");
  }

  // Reports the cursor for --show-cursor, in every style.
  void ReportCursor(const std::string& cursor) const;

 private:
  void Report(const char* event, const std::string& text) const;

  EventStyle style;
};

}  // namespace TamLogCtl
