#pragma once

// Judges a follower over random histories of the log. A model of the writer knows which messages were in the
// file and which the follower returned, so that at each visit the truth stands next to the report: what was
// returned twice, what was in the ring and not returned, and how many messages were lost.
//
// Messages that equal each other byte by byte ("twins") are judged by their number: one of them stands for
// the other.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/log/log_follower.h"
#include "tests/support/ring_model.h"

namespace TamLogTest {

enum class Restarts : std::uint8_t { None, Noticed, Unnoticed };
enum class Resumes : std::uint8_t { Never, FullMemory, CutMemory };

// What happens in the histories of one kind.
struct HistoryKind {
  const char* name = "";
  bool twins = false;   // messages are submitted again, byte by byte
  bool bursts = false;  // of the ring's capacity and more within one flush
  bool clears = false;
  Restarts restarts = Restarts::None;
  Resumes resumes = Resumes::Never;
};

inline void PrintTo(const HistoryKind& kind, std::ostream* out) {
  *out << kind.name;
}

// The kinds that ./test.sh runs.
const std::vector<HistoryKind>& HistoryKinds();

struct JudgeCounts {
  std::uint64_t histories = 0;
  std::uint64_t visits = 0;
  std::uint64_t returned = 0;   // messages
  std::uint64_t lost = 0;       // messages that were in the file and not returned
  std::uint64_t exact = 0;      // reported losses with an exact number, all right unless `wrongCounts`
  std::uint64_t possible = 0;   // reports of a possible loss
  std::uint64_t unbounded = 0;  // of these, reports without an upper bound
  std::uint64_t needless = 0;   // of `possible`, reports while nothing was lost that had been in the file
  std::uint64_t needlessInFile =
      0;                     // of these, reports while messages were lost before they were in the file
  std::uint64_t hidden = 0;  // losses that no reader could notice, see FollowerJudge::IsHidden
  // Failures:
  std::uint64_t twice = 0;        // messages returned twice
  std::uint64_t notReturned = 0;  // messages in the ring at a visit, not returned, without a report
  std::uint64_t silent = 0;       // losses without a report
  std::uint64_t wrongCounts = 0;  // reports whose bounds do not hold the truth
  std::uint64_t wronglyLate = 0;  // messages that are marked late and are not, or the reverse

  std::uint64_t Failures() const { return twice + notReturned + silent + wrongCounts + wronglyLate; }
  void Add(const JudgeCounts& other);
};

// Runs the history of `kind` that `seed` names.
class FollowerJudge {
 public:
  FollowerJudge(const HistoryKind& kind, std::uint32_t seed);

  // Returns what happened. `story` is the history in words up to the first failure; empty when there is none.
  JudgeCounts Run(std::string& story);

 private:
  struct Message {
    LogMessageBody body{};
    std::size_t group = 0;  // messages with equal bytes
  };
  struct Group {
    std::uint64_t inFile = 0;
    std::uint64_t returned = 0;
  };

  int Draw(int least, int most) { return std::uniform_int_distribution<int>(least, most)(random); }
  bool Chance(int percent) { return Draw(1, 100) <= percent; }
  void Operate();
  void Submit(int count);
  void Restart();
  void Visit();
  TamLogClient::FollowStep Follow(const TamLogClient::LogSnapshot& snapshot);
  void CountWritten();
  std::uint64_t Missing() const;
  void CountReturned(const TamLogClient::LogSnapshot& snapshot, const TamLogClient::FollowStep& step);
  void Judge(const TamLogClient::LogSnapshot& snapshot, const TamLogClient::FollowStep& step);
  // Returns whether a restart that the follower does not know about has emptied the log since the last visit,
  // and nothing in the file shows it: the log was empty then, or no message has a number from then any more.
  bool IsHidden(const TamLogClient::LogSnapshot& snapshot) const;
  // Returns whether a restart has emptied the log since the last visit, and it then got all messages of that
  // visit again, byte by byte, with the same numbers in the same slots and as many rewrites.
  bool WasRepeated(const TamLogClient::LogSnapshot& snapshot) const;
  void Tell(const std::string& text);
  void TellRing(const TamLogClient::LogSnapshot& snapshot);
  void Fail(std::uint64_t& counter, std::uint64_t number, const std::string& text);

  HistoryKind kind;
  std::mt19937 random;
  RingModel log{1};
  TamLogClient::LogFollower follower;
  std::string memory;
  std::size_t mostMessages = 0;
  std::int32_t capacity = 1;
  std::vector<Message> messages;
  std::vector<Group> groups;
  std::size_t written = 0;    // of log.EverInFile(), counted in `groups`
  std::uint64_t missing = 0;  // in the file at some time, and not returned
  bool reopened = false;
  bool emptied = false;            // by a restart since the last visit
  bool emptiedUnnoticed = false;   // likewise, by one that the follower does not know about
  bool wasEmpty = false;           // at the last visit
  std::uint64_t nextNumber = 0;    // likewise
  std::uint64_t neverWritten = 0;  // likewise, by the log
  TamLogClient::LogSnapshot lastVisit;
  std::optional<std::uint64_t> previous;  // time key of the message returned last
  int now = 1000;
  JudgeCounts counts;
  std::string told;
  std::string firstFailure;
};

}  // namespace TamLogTest
