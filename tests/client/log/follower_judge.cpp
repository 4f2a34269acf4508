#include "tests/client/log/follower_judge.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "client/log/follower_memory.h"

namespace TamLogTest {

namespace {

using TamLogClient::FollowStep;
using TamLogClient::LogFollower;
using TamLogClient::LogSnapshot;
using TamLogClient::Loss;

constexpr int kVisits = 90;
constexpr int kPercentLate = 25;
constexpr int kPercentTwins = 20;

std::string TextOf(const Loss& loss) {
  return std::to_string(loss.least) + ".." + (loss.most ? std::to_string(*loss.most) : "?");
}

}  // namespace

const std::vector<HistoryKind>& HistoryKinds() {
  static const std::vector<HistoryKind> kinds = {
      {.name = "late messages only"},
      {.name = "clears", .clears = true},
      {.name = "bursts and clears", .bursts = true, .clears = true},
      {.name = "restarts", .bursts = true, .clears = true, .restarts = Restarts::Noticed},
      {.name = "restarts that nobody notices",
       .bursts = true,
       .clears = true,
       .restarts = Restarts::Unnoticed},
      {.name = "resumed, whole memory",
       .bursts = true,
       .clears = true,
       .restarts = Restarts::Noticed,
       .resumes = Resumes::FullMemory},
      {.name = "resumed, cut memory",
       .bursts = true,
       .clears = true,
       .restarts = Restarts::Noticed,
       .resumes = Resumes::CutMemory},
      {.name = "twins", .twins = true, .clears = true},
      {.name = "twins, bursts", .twins = true, .bursts = true, .clears = true},
      {.name = "twins, restarts",
       .twins = true,
       .bursts = true,
       .clears = true,
       .restarts = Restarts::Noticed},
      {.name = "twins, resumed, whole memory",
       .twins = true,
       .bursts = true,
       .clears = true,
       .restarts = Restarts::Noticed,
       .resumes = Resumes::FullMemory},
      {.name = "twins, resumed, cut memory",
       .twins = true,
       .bursts = true,
       .clears = true,
       .restarts = Restarts::Noticed,
       .resumes = Resumes::CutMemory},
  };
  return kinds;
}

void JudgeCounts::Add(const JudgeCounts& other) {
  histories += other.histories;
  visits += other.visits;
  returned += other.returned;
  lost += other.lost;
  exact += other.exact;
  possible += other.possible;
  unbounded += other.unbounded;
  needless += other.needless;
  needlessInFile += other.needlessInFile;
  hidden += other.hidden;
  twice += other.twice;
  notReturned += other.notReturned;
  silent += other.silent;
  wrongCounts += other.wrongCounts;
  wronglyLate += other.wronglyLate;
}

FollowerJudge::FollowerJudge(const HistoryKind& chosen, std::uint32_t seed) : kind(chosen), random(seed) {
  capacity = Chance(5) ? Draw(1, 2) : Chance(60) ? Draw(3, 12) : Draw(13, 60);
  log = RingModel(capacity);
  switch (kind.resumes) {
    case Resumes::Never:
      break;
    case Resumes::FullMemory:
      mostMessages = 1000;
      break;
    case Resumes::CutMemory:
      mostMessages = static_cast<std::size_t>(Draw(1, 8));
      break;
  }
}

JudgeCounts FollowerJudge::Run(std::string& story) {
  counts.histories = 1;
  Tell("capacity " + std::to_string(capacity) + ", memory of " + std::to_string(mostMessages));
  for (int k = Draw(0, 6); k > 0; --k) Operate();
  const LogSnapshot snapshot = log.Snapshot();
  TellRing(snapshot);
  follower.Start(snapshot);
  memory = FormatMemory(follower.Remembered(mostMessages));
  reopened = emptied = emptiedUnnoticed = false;
  lastVisit = snapshot;
  wasEmpty = snapshot.header.messageCount == 0;
  nextNumber = snapshot.header.nextSequence;
  neverWritten = log.NeverWritten();
  CountWritten();
  for (const std::uint32_t slot : snapshot.RingOrder()) {
    Group& group = groups[messages[log.MessageIn(slot)].group];
    group.returned = std::min(group.returned + 1, group.inFile);
    const std::uint64_t key = TimeKey(snapshot.slots[slot].body);
    previous = std::max(previous.value_or(key), key);
  }
  missing = Missing();
  for (int i = 0; i < kVisits && firstFailure.empty(); ++i) {
    for (int k = Chance(60) ? Draw(0, 2) : Draw(0, 6); k > 0; --k) Operate();
    Visit();
  }
  story = firstFailure.empty() ? "" : told + firstFailure;
  return counts;
}

void FollowerJudge::Submit(int count) {
  for (int i = 0; i < count; ++i) {
    Message message;
    if (kind.twins && !messages.empty() && Chance(kPercentTwins)) {
      const auto first = std::max(0, static_cast<int>(messages.size()) - 2 * capacity - 2);
      message = messages[static_cast<std::size_t>(Draw(first, static_cast<int>(messages.size()) - 1))];
    } else {
      now += Draw(0, 3);
      const int time = Chance(kPercentLate) ? std::max(0, now - Draw(1, 40)) : now;
      message.group = groups.size();
      message.body = MakeBody(time, "m" + std::to_string(message.group));
      groups.push_back({});
    }
    log.Submit(message.body);
    Tell(" m" + std::to_string(message.group) + "@" + std::to_string(TimeKey(message.body) % 100000));
    messages.push_back(message);
  }
}

void FollowerJudge::Operate() {
  const int what = Draw(0, 99);
  if (what < 3 && kind.clears) {
    Tell("\nclear");
    log.Clear();
  } else if (what < 10 && kind.restarts != Restarts::None) {
    Restart();
  } else if (what < 18 && kind.bursts) {
    Tell("\nburst");
    Submit(capacity + Draw(-1, 3));
    log.Flush();
  } else {
    Tell("\nflush");
    Submit(Draw(1, 4));
    log.Flush();
  }
}

void FollowerJudge::Restart() {
  if (Chance(30)) Submit(1);  // pending
  if (kind.restarts == Restarts::Noticed && Chance(20)) capacity = std::max(1, capacity + Draw(-2, 2));
  const bool kept = log.Restart(capacity);
  Tell(std::string("\nrestart, ") + (kept ? "kept" : "emptied") + ", capacity " + std::to_string(capacity));
  emptied = emptied || !kept;
  if (kind.restarts == Restarts::Noticed) {
    reopened = true;
  } else if (!kept) {
    emptiedUnnoticed = true;
  }
}

FollowStep FollowerJudge::Follow(const LogSnapshot& snapshot) {
  if (kind.resumes == Resumes::Never || Chance(50)) return follower.Next(snapshot, reopened);
  const auto parsed = TamLogClient::ParseMemory(FormatMemory(follower.Remembered(mostMessages)));
  follower = {};
  if (!parsed) {
    Fail(counts.silent, 1, "the memory is not parsed");
    return {};
  }
  Tell("\nresume");
  follower.Resume(*parsed);
  return follower.Next(snapshot, true);
}

void FollowerJudge::Visit() {
  const LogSnapshot snapshot = log.Snapshot();
  const FollowStep step = Follow(snapshot);
  ++counts.visits;
  TellRing(snapshot);
  CountWritten();
  CountReturned(snapshot, step);
  Judge(snapshot, step);
  reopened = emptied = emptiedUnnoticed = false;
  lastVisit = snapshot;
  wasEmpty = snapshot.header.messageCount == 0;
  nextNumber = snapshot.header.nextSequence;
  neverWritten = log.NeverWritten();
}

void FollowerJudge::CountWritten() {
  const std::vector<std::size_t>& inFile = log.EverInFile();
  for (; written < inFile.size(); ++written) ++groups[messages[inFile[written]].group].inFile;
}

void FollowerJudge::CountReturned(const LogSnapshot& snapshot, const FollowStep& step) {
  Tell("\n  returned:");
  for (const auto& each : step.messages) {
    const std::size_t number = messages[log.MessageIn(each.slot)].group;
    Tell(" m" + std::to_string(number));
    ++counts.returned;
    Group& group = groups[number];
    if (++group.returned > group.inFile) {
      --group.returned;
      Fail(counts.twice, 1, "m" + std::to_string(number) + " is returned twice");
    }
    const std::uint64_t key = TimeKey(snapshot.slots[each.slot].body);
    if (each.late != (previous && key < *previous)) Fail(counts.wronglyLate, 1, "late is wrong");
    previous = key;
  }
}

std::uint64_t FollowerJudge::Missing() const {
  return std::accumulate(
      groups.begin(), groups.end(), std::uint64_t{0},
      [](std::uint64_t sum, const Group& group) { return sum + group.inFile - group.returned; });
}

bool FollowerJudge::IsHidden(const LogSnapshot& snapshot) const {
  const auto ring = snapshot.RingOrder();
  return emptiedUnnoticed && (wasEmpty || std::all_of(ring.begin(), ring.end(), [&](std::uint32_t slot) {
                                return snapshot.slots[slot].sequence >= nextNumber;
                              }));
}

bool FollowerJudge::WasRepeated(const LogSnapshot& snapshot) const {
  const auto ring = lastVisit.RingOrder();
  return emptied && !ring.empty() && snapshot.header.rewriteCount == lastVisit.header.rewriteCount &&
         std::all_of(ring.begin(), ring.end(), [&](std::uint32_t slot) {
           return slot < snapshot.slots.size() &&
                  std::memcmp(&snapshot.slots[slot], &lastVisit.slots[slot], sizeof(LogMessage)) == 0;
         });
}

void FollowerJudge::Judge(const LogSnapshot& snapshot, const FollowStep& step) {
  const std::uint64_t missingBefore = missing;
  missing = Missing();
  // Messages that were lost may come back from the server's memory and are returned then.
  const std::uint64_t lost = missing - std::min(missing, missingBefore);
  counts.lost += lost;
  const std::string said = TextOf(step.loss) + ", truth " + std::to_string(lost);
  Tell("\n  lost: " + said);
  if (step.loss.Exact() && step.loss.Any()) ++counts.exact;
  if (step.loss.Any() && !step.loss.Exact()) {
    ++counts.possible;
    if (!step.loss.most) ++counts.unbounded;
    if (lost == 0) ++counts.needless;
    if (lost == 0 && log.NeverWritten() > neverWritten) ++counts.needlessInFile;
  }
  const bool hidden = IsHidden(snapshot) || WasRepeated(snapshot);
  if (lost > 0 && !step.loss.Any() && hidden) {
    ++counts.hidden;
  } else if (lost > 0 && !step.loss.Any()) {
    Fail(counts.silent, 1, "silent loss");
  }
  if (!hidden && step.loss.Any() && (lost < step.loss.least || (step.loss.most && lost > *step.loss.most)))
    Fail(counts.wrongCounts, 1, "wrong count: " + said);
  if (kind.twins || kind.resumes == Resumes::CutMemory || step.loss.Any()) return;
  for (const std::uint32_t slot : snapshot.RingOrder()) {
    const Group& group = groups[messages[log.MessageIn(slot)].group];
    if (group.returned < group.inFile) Fail(counts.notReturned, 1, "a message in the ring is not returned");
  }
}

void FollowerJudge::Tell(const std::string& text) {
  told += text;
}

void FollowerJudge::TellRing(const LogSnapshot& snapshot) {
  const LogFileHeader& header = snapshot.header;
  Tell("\nvisit: changes " + std::to_string(header.changeCount) + ", rewrites " +
       std::to_string(header.rewriteCount) + ", next number " + std::to_string(header.nextSequence) +
       ", next slot " + std::to_string(header.nextSlot) + ", from the oldest slot:");
  for (const std::uint32_t slot : snapshot.RingOrder()) {
    Tell(" m" + std::to_string(messages[log.MessageIn(slot)].group) + "/" +
         std::to_string(snapshot.slots[slot].sequence));
  }
}

void FollowerJudge::Fail(std::uint64_t& counter, std::uint64_t number, const std::string& text) {
  counter += number;
  if (firstFailure.empty()) firstFailure = "\nFAILURE: " + text + "\n";
}

}  // namespace TamLogTest
