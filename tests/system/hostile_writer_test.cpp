// Every user may write to the shared log. While another process changes header and slots without pause, at
// random or in ways that look right, every verb ends in time, with an exit code of its own and with text that
// a terminal can take.

#include <cstring>
#include <ostream>
#include <random>

#include "tests/system/administration.h"
#include "util/win32.h"

#undef StartService  // would rename the fixture's operation

using namespace std::chrono_literals;

namespace {

constexpr std::int32_t kCapacity = 400;
constexpr std::size_t kBytes = kSlotsOffset + sizeof(LogMessage) * kCapacity;

enum class Kind : std::uint8_t { AnyHeader, LikelyHeader, Counters, Names, Slots, Times, Everything };

// Writes into the shared log from a thread until it is destroyed. Maps it again and again, so that no restart
// of the server has to wait for it, and each section is met as soon as it exists.
class HostileWriter {
 public:
  HostileWriter(Kind what, std::uint32_t seed) : kind(what), random(seed), thread([this] { Run(); }) {}
  ~HostileWriter() {
    stopping = true;
    thread.join();
  }
  HostileWriter(const HostileWriter&) = delete;
  HostileWriter& operator=(const HostileWriter&) = delete;

 private:
  // readCount, the first number, stays as it is. Any other number there is a reader that never leaves: the
  // server waits for it until `doctor --unstick` signals its event.
  static constexpr std::size_t kAfterReadCount = sizeof(LogFileHeader::readCount);
  static_assert(offsetof(LogFileHeader, readCount) == 0);

  void Run() {
    while (!stopping) {
      const OwnedHandle mapping = Own(OpenFileMappingA(FILE_MAP_WRITE, FALSE, kFileMapName));
      if (mapping != nullptr) {
        view = static_cast<std::byte*>(MapViewOfFile(mapping.get(), FILE_MAP_WRITE, 0, 0, kBytes));
        for (int i = 0; i < 50 && view != nullptr; ++i) Change();
        if (view != nullptr) UnmapViewOfFile(view);
      }
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
    }
  }

  // A number that some check may let pass, or one at a limit.
  std::int32_t LikelyNumber() {
    static constexpr std::int32_t kAll[] = {
        0,     1,       -1,        kCapacity - 1, kCapacity,       kCapacity + 1,
        50000, 7669585, INT32_MAX, INT32_MIN,     INT32_MAX / 560, 1000000};
    return random() % 3 == 0 ? static_cast<std::int32_t>(random() % kCapacity)
                             : kAll[random() % std::size(kAll)];
  }

  void Change() {
    LogFileHeader header{};
    std::memcpy(&header, view, sizeof(header));
    switch (kind) {
      case Kind::AnyHeader:
        return Fill(kAfterReadCount, kLockNamesOffset - kAfterReadCount);
      case Kind::LikelyHeader:
        header.messageCount = LikelyNumber();
        header.nextSlot = LikelyNumber();
        if (random() % 2 == 0) header.maxMessages = LikelyNumber();
        break;
      case Kind::Counters:
        header.changeCount = random();
        header.rewriteCount = random() % 2 == 0 ? random() : UINT64_MAX - random() % 3;
        header.nextSequence = random() % 2 == 0 ? random() : UINT64_MAX - random() % 3;
        header.messageCount = static_cast<std::int32_t>(random() % kCapacity);
        header.nextSlot = header.messageCount;
        break;
      case Kind::Names:
        return Fill(kLockNamesOffset, sizeof(LockNames));
      case Kind::Slots:
        return Fill(kSlotsOffset, sizeof(LogMessage) * kCapacity);
      case Kind::Times: {
        const std::size_t slot = kSlotsOffset + sizeof(LogMessage) * (random() % kCapacity);
        return Fill(slot, offsetof(LogMessage, body.type));
      }
      case Kind::Everything:
        if (random() % 2 == 0) return Fill(kSlotsOffset, kBytes - kSlotsOffset);
        return Fill(kAfterReadCount, kLockNamesOffset - kAfterReadCount);
    }
    std::memcpy(view + kAfterReadCount, reinterpret_cast<const std::byte*>(&header) + kAfterReadCount,
                sizeof(header) - kAfterReadCount);
  }

  // Writes random bytes at a random place of this part.
  void Fill(std::size_t begin, std::size_t size) {
    const std::size_t length = std::min<std::size_t>(size, 1 + random() % 64);
    const std::size_t at = begin + random() % (size - length + 1);
    for (std::size_t i = 0; i < length; ++i) view[at + i] = static_cast<std::byte>(random());
  }

  const Kind kind;
  std::mt19937 random;
  std::byte* view = nullptr;
  std::atomic<bool> stopping{false};
  std::thread thread;
};

}  // namespace

class HostileWriters : public Administration {
 protected:
  // Runs each verb that reads the shared log.
  void RunEveryVerb(const std::string& what) {
    const std::string file = "\"" + ScratchFile("copy") + "\"";
    const std::string followed = "export --follow --for 1 " + file + "f --cursor-file " + file;
    for (const std::string& verb :
         {std::string("show"), std::string("show -n 5 -o json"), std::string("show -o csv -r --count"),
          std::string("show -o export -s x"), std::string("follow -n all --for 1"),
          "export " + file + " -o cat --force", followed + "c", std::string("stats"),
          std::string("stats -o json"), std::string("status"), std::string("status -o json"),
          std::string("doctor --watch 200 --timeout 1000"), std::string("verify --live"),
          std::string("verify --live -o json"), std::string("settings")}) {
      const auto start = std::chrono::steady_clock::now();
      const CommandReport report = RunTool(verb + " --timeout 2000");
      ASSERT_TRUE(report.exitCode) << what << ": " << verb << " does not end";
      EXPECT_LT(std::chrono::steady_clock::now() - start, 40s) << what << ": " << verb;
      EXPECT_LE(*report.exitCode, 9U) << what << ": " << verb << "\n" << report.output.substr(0, 2000);
      for (const char control : {'\x1b', '\x07', '\0'})
        EXPECT_EQ(report.output.find(control), std::string::npos) << what << ": " << verb;
      for (const char* const word : {"bad_alloc", "length_error", "terminate", "unexpected", "internal"})
        EXPECT_EQ(report.output.find(word), std::string::npos) << what << ": " << verb << "\n"
                                                               << report.output;
    }
  }

  void RunAgainst(Kind kind, const std::string& what) {
    RunService({.maxMessage = kCapacity});
    std::string lines;
    for (int i = 0; i < kCapacity / 2; ++i) lines += "message " + std::to_string(i) + "\n";
    lines.pop_back();
    Expect("send -s Demo", 0, "", lines);
    {
      const HostileWriter writer(kind, 20261122);
      RunEveryVerb(what);
    }
    TakeDiagnostics();  // the server reports what it finds there
  }
};

struct Attack {
  Kind kind;
  const char* name;
};

// The name of the case in the lists of ctest.
void PrintTo(const Attack& attack, std::ostream* out) {
  *out << attack.name;
}

class HostileWriterKinds : public HostileWriters, public testing::WithParamInterface<Attack> {};

TEST_P(HostileWriterKinds, AreNoHarm) {
  RunAgainst(GetParam().kind, GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(Of, HostileWriterKinds,
                         testing::Values(Attack{Kind::AnyHeader, "RandomHeaders"},
                                         Attack{Kind::LikelyHeader, "HeadersOfLikelyNumbers"},
                                         Attack{Kind::Counters, "CountersThatJump"},
                                         Attack{Kind::Names, "RandomNamesOfEvents"},
                                         Attack{Kind::Slots, "RandomSlots"},
                                         Attack{Kind::Times, "RandomTimes"},
                                         Attack{Kind::Everything, "RandomBytesEverywhere"}),
                         [](const auto& attack) { return std::string(attack.param.name); });

// An open that the writer disturbs empties the log, or keeps what is sound. It does not fail. A restart takes
// its pause of a second, and up to 15 s more while the writer has the file open.
TEST_F(HostileWriters, RestartsMeanwhileEndInAServerThatServes) {
  RunService({.maxMessage = kCapacity});
  std::uint32_t seed = 1;
  for (const Kind kind : {Kind::LikelyHeader, Kind::AnyHeader, Kind::Everything}) {
    for (int i = 0; i < 2; ++i) {
      const std::uint32_t starts = Starts();
      const HostileWriter writer(kind, seed++);
      ASSERT_EQ(AskForCode(SettingsRequest(CurrentSettings())), ReplyCode::Done);
      WaitForStarts(starts + 1, 45s);
    }
  }
  const std::uint32_t starts = Starts();
  ASSERT_EQ(AskForCode(RequestOf(RequestCode::ClearLog)), ReplyCode::Done);
  WaitForStarts(starts + 1);
  SubmitOverPipe(Message("after all", 0));
  ExpectTexts({"after all"});
  EXPECT_LT(StopService().duration, 20s);
  TakeDiagnostics();
}
