#pragma once

// Judges the fate of each message of the load: it was stored, or there is a reason against it that the system
// names. A message with neither is lost, which fails the run. Standard library only.
//
// The judge relies on no timing. A witness copies the log again and again; between two copies that the same
// opening of the file shows, the server's count of changes proves that a flush has begun and ended, and that
// flush has written whatever was accepted before the first of the two. A message that is then neither seen
// nor displaced by newer messages is lost.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/soak/soak_message.h"

namespace Soak {

enum class Outcome : std::uint8_t {
  Taken,       // the server reported it as accepted, or took it from the driver
  Refused,     // with an error, before or instead of being carried out
  Unanswered,  // sent, but the connection ended before the answer came
};

struct Sent {
  MessageId id;
  Moment sent = 0;      // not accepted before
  Moment answered = 0;  // if accepted, then not later
  std::uint64_t key = 0;
  Outcome outcome = Outcome::Taken;
};

// One copy of the log that the witness took.
struct Look {
  Moment begin = 0;
  Moment end = 0;
  std::uint64_t changeCount = 0;
  std::uint64_t rewriteCount = 0;
  std::uint32_t opening = 0;  // how often the witness had to reopen the log before
  bool full = false;
  std::uint64_t oldestKey = 0;
};

// The earliest and the latest time at which pending messages were dropped on purpose.
struct Interruption {
  enum class Kind : std::uint8_t { Restart, Clear };
  Kind kind = Kind::Restart;
  Moment from = 0;
  Moment to = 0;
};

struct FilterChange {
  Moment begin = 0;  // before the first request
  Moment end = 0;    // after the last answer
  FilterState after;
};

enum class Verdict : std::uint8_t {
  Stored,              // a reader saw it
  Filtered,            // dropped by filters that did not change meanwhile
  Overwritten,         // the ring was full, and every message in it newer
  OverwrittenByBurst,  // the ring was full and had been rewritten, which costs the newest first
  Refused,             // with an error
  PendingAtRestart,    // not written yet when the server stopped, or stored and emptied with the file unseen
  Cleared,             // pending or unseen when the log was cleared
  FiltersChanging,     // not stored; the filters were just changed
  Unanswered,          // not stored; no answer had reported it as accepted
  Lost,                // none of these: a failure
  StoredThoughFiltered,  // a failure
  StoredThoughRefused,   // a failure
};
inline constexpr std::size_t kVerdicts = 12;

const char* VerdictName(Verdict verdict);
constexpr bool IsFailure(Verdict verdict) {
  return verdict >= Verdict::Lost;
}
// Cases that the design leaves open: nobody can determine whether these messages had to be stored.
constexpr bool IsUncertain(Verdict verdict) {
  return verdict >= Verdict::PendingAtRestart && verdict <= Verdict::Unanswered;
}

class Judge {
 public:
  // Each list is in the order of time. The filters let everything pass before the first change.
  Judge(std::vector<Look> allLooks, std::vector<Interruption> allInterruptions,
        std::vector<FilterChange> allChanges);

  Verdict Of(const Sent& message, bool seen) const;

 private:
  enum class Filter : std::uint8_t { Keeps, Drops, Unsure };

  Filter FilterOf(const Sent& message) const;
  Verdict WhyUnseen(const Sent& message) const;
  const Look* DueIn(Moment accepted, const Look*& before) const;
  const Interruption* Between(Moment from, Moment to) const;

  std::vector<Look> looks;
  std::vector<Interruption> interruptions;
  std::vector<FilterChange> changes;
};

struct Account {
  std::uint64_t sent = 0;
  std::array<std::uint64_t, kVerdicts> count{};

  void Add(Verdict verdict) {
    ++sent;
    ++count[static_cast<std::size_t>(verdict)];
  }
  std::uint64_t Of(Verdict verdict) const { return count[static_cast<std::size_t>(verdict)]; }
  std::uint64_t Failures() const;
  std::uint64_t Uncertain() const;
  // Returns "100 sent = 60 stored + 20 filtered + ..."; lists failures only when there are any.
  std::string Text() const;
};

}  // namespace Soak
