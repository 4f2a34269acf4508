#pragma once

// What happens to the log while it is read, told on stderr: for people in words, for programs as JSON, one
// object a line:
//
//   {"event":"lost","count":12}        exactly so many messages were gone before they could be read
//   {"event":"lost","count":null,"at_least":3}   their number is not known
//   {"event":"cleared"}  {"event":"stopped"}  {"event":"reopened"}  {"event":"blocked"}
//   {"event":"cursor","cursor":"c1..."}          where to go on (--show-cursor)
//   {"event":"cursor-gone"}                      the cursor's message is not there any more
//   {"event":"late-skipped"}                     messages dated before the cursor's may have been left out

#include <cstdint>
#include <string>

#include "client/log/log_follower.h"

namespace TamLogCtl {

enum class EventStyle : std::uint8_t { Text, Json, None };

class EventTeller {
 public:
  explicit EventTeller(EventStyle chosen) : style(chosen) {}

  void Lost(const TamLogClient::Loss& loss) const;
  void Cleared() const { Tell("cleared", "the log was emptied"); }
  void Stopped() const { Tell("stopped", "the server has stopped; waiting for it to come back"); }
  void Reopened() const { Tell("reopened", "the server is back"); }
  void Blocked() const { Tell("blocked", "the server keeps its readers waiting; still trying"); }
  void CursorGone() const {
    Tell("cursor-gone", "the cursor's message is not in the log any more; what is dated later is shown");
  }
  void LateSkipped() const {
    Tell("late-skipped",
         "messages dated before the cursor's were written since; they are not shown (--cursor-file shows "
         "them)");
  }

  // Was asked for, so it is told in any style.
  void CursorIs(const std::string& cursor) const;

 private:
  void Tell(const char* event, const std::string& words) const;

  EventStyle style;
};

}  // namespace TamLogCtl
