// All operations at once, from several threads and with readers that enter and leave; every message is
// accounted for.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/store/log_file_fixture.h"
#include "tests/support/watchdog.h"

namespace StoreTest {
namespace {

constexpr int kWriters = 3;

class Stress : public LogFile {
 protected:
  void Start(int messagesOfEachWriter) {
    SetCapacity(static_cast<std::uint32_t>(kWriters * messagesOfEachWriter + 500));
    Open();
    for (int writer = 0; writer < kWriters; ++writer) {
      Run([this, writer, messagesOfEachWriter] { HandIn(writer, messagesOfEachWriter); });
    }
    Run([this] {
      while (writing > 0) Flush();
    });
    Run([this] {
      TestReader reader(names);
      while (!stopped) {
        if (!reader.Enter(20)) continue;
        reader.Leave();
        std::this_thread::sleep_for(std::chrono::microseconds(300));
      }
    });
    Run([this] {
      MessageList list;
      while (writing > 0) {
        server->LoadToList(list);
        server->WriteToDisk();
      }
    });
    // A reader and a writer can pass each other
    // (AReaderThatPassesAWriterLeavesANegativeCountAndAWaitingWriter); a writer then waits forever. This
    // signals its event.
    Run([this] {
      TestReader rescuer(names);
      while (!stopped) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (rescuer.Header().readCount < 0) rescuer.SignalWriteWait();
      }
    });
  }

  void HandIn(int writer, int messages) {
    std::minstd_rand random(static_cast<unsigned>(writer) + 7);
    for (int i = 0; i < messages; ++i) {
      const int second = i / 3 + static_cast<int>(random() % 4);  // often late by a few seconds
      Submit(std::to_string(writer * messages + i), At(1, second / 60, second % 60));
      ++handedIn;
    }
    --writing;
  }

  template <class Work>
  void Run(Work work) {
    threads.emplace_back([work] {
      try {
        work();
      } catch (const TamLogUtil::Exceptions::ExceptionBase& failure) {
        ADD_FAILURE() << failure.what();
      }
    });
  }

  void Finish() {
    while (writing > 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    stopped = true;
    // The reader ends first; then writers that still wait for it are released.
    std::thread release([this] {
      TestReader rescuer(names);
      while (!joined) {
        if (rescuer.Header().readCount <= 0) rescuer.SignalWriteWait();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
    });
    for (std::thread& thread : threads) thread.join();
    Flush();
    joined = true;
    release.join();
  }

  // The numbers of the stored messages; each occurs once.
  std::set<int> Stored() const {
    std::set<int> stored;
    for (const std::string& text : Newest()) EXPECT_TRUE(stored.insert(std::stoi(text)).second) << text;
    return stored;
  }

  std::vector<std::thread> threads;
  std::atomic<int> writing{kWriters};
  std::atomic<int> handedIn{0};
  std::atomic<bool> stopped{false};
  std::atomic<bool> joined{false};
};

TEST_F(Stress, EveryMessageIsStoredOnceWhileReadersComeAndGo) {
  constexpr int kEach = 300;
  Start(kEach);
  Finish();
  EXPECT_EQ(Stored().size(), static_cast<std::size_t>(kWriters * kEach));
  const std::vector<LogMessage> messages = Messages();
  EXPECT_TRUE(std::is_sorted(messages.begin(), messages.end(), [](const LogMessage& a, const LogMessage& b) {
    return TimeKey(a.body) > TimeKey(b.body);
  }));
  EXPECT_TRUE(server->VerifyIntegrity());
}

TEST_F(Stress, EveryMessageIsStoredOnceOrClearedWhileClearsRun) {
  constexpr int kEach = 300;
  std::atomic<int> lastClearBegan{0};
  Start(kEach);
  // Without the configuration's lock, which would block the writers: only the list's own lock protects it.
  Run([&] {
    while (writing > 0) {
      lastClearBegan = handedIn.load();
      server->ClearMessages();
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
  });
  Finish();
  const std::set<int> stored = Stored();
  EXPECT_LE(static_cast<int>(stored.size()), kWriters * kEach - lastClearBegan + kWriters);
  // All messages of each writer after the last clear, and none before.
  for (int writer = 0; writer < kWriters; ++writer) {
    const auto first = stored.lower_bound(writer * kEach);
    const auto end = stored.lower_bound((writer + 1) * kEach);
    if (first == end) continue;
    EXPECT_EQ(std::distance(first, end), (writer + 1) * kEach - *first) << "of writer " << writer;
  }
  EXPECT_EQ(Header().messageCount, static_cast<std::int32_t>(stored.size()));
  EXPECT_TRUE(server->VerifyIntegrity());
}

// A clear holds the configuration's lock while it waits for readers; a write to disk that took that lock
// under its read access would make the two wait for each other forever.
TEST_F(Stress, ClearsAndWritesToDiskNeverWaitForEachOther) {
  Open();
  Run([this] {
    for (int i = 0; i < 150; ++i) server->WriteToDisk();
    --writing;
  });
  Run([this] {
    while (writing == kWriters) Clear();
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Header().readCount, 0);
}

// Opens and closes the file repeatedly while other threads use it: the file stays sound.
TEST_F(Stress, OpeningAndClosingUnderRunningThreadsNeverDamagesTheFile) {
  Open();
  const auto tolerant = [this](auto action) {
    threads.emplace_back([this, action] {
      while (!stopped) {
        FailureOf(action);
        std::this_thread::yield();
      }
    });
  };
  tolerant([this] {
    Submit("m", At(1, 0));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  tolerant([this] { Flush(); });
  tolerant([this] { server->WriteToDisk(); });
  for (int i = 0; i < 40; ++i) {
    Close(i % 2 == 0 ? 0 : 1000);
    Open();
    EXPECT_EQ(Header().maxMessages, 10);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  stopped = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(server->VerifyIntegrity());
}

// A thread that enters as reader between the mapping of the file and the reset of readCount would leave
// readCount below 0, and no writer would get access again.
TEST_F(Stress, ReadersThatComeInDuringAnOpenAreCountedOutAgain) {
  Open();
  for (int reader = 0; reader < 3; ++reader) {
    Run([this] {
      while (!stopped) FailureOf([this] { server->WriteToDisk(); });
    });
  }
  for (int i = 0; i < 80; ++i) {
    Close(0);
    Open();
    Submit("m", At(1, 0));
    Flush();
  }
  stopped = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Header().readCount, 0);
}

}  // namespace
}  // namespace StoreTest
