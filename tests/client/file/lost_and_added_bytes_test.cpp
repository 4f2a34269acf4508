// Bytes that a file lost or gained, at every kind of place: repair finds where the slots go on and saves
// every message that the damage did not touch.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "tests/client/file/damaged_files.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::LogFileImage;
using TamLogClient::PlanRepair;
using TamLogTest::BodyBytes;
using TamLogTest::MakeBody;
using TamLogTest::Pick;
using TamLogTest::Random;
using TamLogTest::RingModel;

constexpr std::uint64_t kSlot = sizeof(LogMessage);
// What a message needs: the padding after it may be lost.
constexpr std::uint64_t kNeeded = offsetof(LogMessage, padding);

// A change of the file: `removed` bytes at `at` are replaced by `added`.
struct Change {
  std::uint64_t at = 0;
  std::uint64_t removed = 0;
  std::string added;
};

using Bodies = std::multiset<std::string>;

class LostAndAddedBytes : public testing::Test {
 protected:
  // A log of `capacity` slots after `messages` messages, with texts of every length and equal times.
  static std::string MakeLog(std::int32_t capacity, int messages, int first = 0) {
    RingModel log(capacity);
    for (int i = first; i < first + messages; ++i) {
      const auto length = static_cast<std::size_t>(i * 37 % 250);
      log.Submit(MakeBody(i / 2 * 10,
                          std::to_string(i) + std::string(length, static_cast<char>('a' + i % 26)),
                          i % 3 == 0 ? "Stage" : "Camera", static_cast<std::uint32_t>(i % 4)));
      if (i % 4 == 3) log.Flush();
    }
    log.Flush();
    std::string bytes = log.FileBytes();
    LockNames names{};
    std::strcpy(names.name[0], kHeaderLockName);
    std::strcpy(names.name[1], kReadWaitEventName);
    std::strcpy(names.name[2], kWriteWaitEventName);
    std::memcpy(bytes.data() + kLockNamesOffset, &names, sizeof(names));
    return bytes;
  }

  // The messages of the ring that none of the changes touches, and all of them.
  static void Sort(const std::string& bytes, const std::vector<Change>& changes, Bodies& untouched,
                   Bodies& all) {
    const LogFileImage image(bytes);
    for (const std::uint32_t slot : image.RingSlots()) {
      const std::uint64_t begin = LogFileImage::OffsetOf(slot);
      // The number is no part of the message.
      const std::uint64_t first = begin + offsetof(LogMessage, body);
      const bool touched = std::any_of(changes.begin(), changes.end(), [&](const Change& change) {
        return change.at < begin + kNeeded && change.at + change.removed > first;
      });
      const std::string body = BodyBytes(image.Slot(slot));
      all.insert(body);
      if (!touched) untouched.insert(body);
    }
  }

  static std::string Changed(std::string bytes, std::vector<Change> changes) {
    std::sort(changes.begin(), changes.end(),
              [](const Change& left, const Change& right) { return left.at > right.at; });
    for (const Change& change : changes) bytes.replace(change.at, change.removed, change.added);
    return bytes;
  }

  static Bodies Saved(const std::string& bytes) {
    const LogFileImage image(bytes);
    Bodies bodies;
    for (const auto& saved : PlanRepair(image).oldestFirst)
      bodies.insert(BodyBytes(SavedMessageOf(image, saved)));
    return bodies;
  }

  // Returns a description of what went wrong; empty when nothing did.
  static std::string Try(const std::string& bytes, const std::vector<Change>& changes) {
    Bodies untouched;
    Bodies all;
    Sort(bytes, changes, untouched, all);
    const Bodies saved = Saved(Changed(bytes, changes));
    const auto missing = std::count_if(untouched.begin(), untouched.end(),
                                       [&](const std::string& body) { return saved.count(body) == 0; });
    const auto strange = static_cast<std::size_t>(std::count_if(
        saved.begin(), saved.end(), [&](const std::string& body) { return all.count(body) == 0; }));
    // Of a message that was split, both halves may have all that makes a message; so may slots that were
    // added.
    std::size_t allowed = 2 * (all.size() - untouched.size());
    for (const Change& change : changes) allowed += 1 + change.added.size() / kSlot;
    if (missing == 0 && strange <= allowed) return "";
    std::string text = std::to_string(missing) + " missing, " + std::to_string(strange) + " strange";
    for (const Change& change : changes)
      text += "; at " + std::to_string(change.at) + " -" + std::to_string(change.removed) + " +" +
              std::to_string(change.added.size());
    return text;
  }

  // Tries every change of `changes` in turn; reports the first few that go wrong.
  template <class Changes>
  static void TryAll(const std::string& bytes, const Changes& changes) {
    int wrong = 0;
    for (const auto& change : changes) {
      const std::string trouble = Try(bytes, change);
      if (trouble.empty()) continue;
      if (++wrong <= 10) ADD_FAILURE() << trouble;
    }
    EXPECT_EQ(wrong, 0) << "of " << changes.size();
  }

  // Lengths up to two slots: short ones in steps of `few`, longer ones in steps of `many`, and whole slots.
  static std::vector<std::uint64_t> Lengths(std::uint64_t few, std::uint64_t many) {
    std::vector<std::uint64_t> lengths{kSlot - 1, kSlot, kSlot + 1, 2 * kSlot};
    for (std::uint64_t length = 1; length <= 2 * kSlot; length += length < 16 ? few : many)
      lengths.push_back(length);
    return lengths;
  }

  static std::string Filling(int kind, std::size_t count, const std::string& bytes, std::uint64_t at) {
    Random random(static_cast<unsigned>(count));
    std::string filling(count, kind == 0 ? '\0' : '?');
    if (kind == 2)
      std::generate(filling.begin(), filling.end(), [&] { return static_cast<char>(Pick(random, 256)); });
    if (kind == 3) filling = bytes.substr(at - std::min<std::uint64_t>(at, count), count);
    if (kind == 4)
      std::generate(filling.begin(), filling.end(), [&] { return static_cast<char>(Pick(random, 9) == 0); });
    return filling;
  }
};

TEST_F(LostAndAddedBytes, CutAnywhereCostsOnlyTheMessagesItTouches) {
  for (const std::string& bytes : {MakeLog(10, 34), MakeLog(12, 7), MakeLog(9, 9)}) {
    std::vector<std::vector<Change>> changes;
    for (std::uint64_t at = 0; at < bytes.size(); at += 29) {
      for (const std::uint64_t count : Lengths(3, 71)) {
        if (at + count <= bytes.size()) changes.push_back({{at, count, ""}});
      }
    }
    TryAll(bytes, changes);
  }
}

TEST_F(LostAndAddedBytes, InsertionAnywhereCostsOnlyTheMessageItSplits) {
  for (const std::string& bytes : {MakeLog(10, 34), MakeLog(12, 7)}) {
    for (int kind = 0; kind < 5; ++kind) {
      SCOPED_TRACE(kind);
      std::vector<std::vector<Change>> changes;
      for (std::uint64_t at = 0; at <= bytes.size(); at += 53) {
        for (const std::uint64_t count : Lengths(5, 127))
          changes.push_back({{at, 0, Filling(kind, count, bytes, at)}});
      }
      TryAll(bytes, changes);
    }
  }
}

// A message that lost bytes may still look like one, with a text that is not its own.
TEST_F(LostAndAddedBytes, MessageWhoseTextMovedIsNotSaved) {
  const std::string bytes = MakeLog(10, 34);
  for (std::uint64_t count = 1; count <= 40; ++count) {
    for (const std::uint64_t at : {LogFileSize(4) + 60, LogFileSize(4) + 250}) {
      Bodies untouched;
      Bodies all;
      Sort(bytes, {{at, count, ""}}, untouched, all);
      EXPECT_EQ(Saved(Changed(bytes, {{at, count, ""}})), untouched) << count << " at " << at;
    }
  }
}

TEST_F(LostAndAddedBytes, LastMessageIsFoundAfterAByteWasAddedAndAnotherLost) {
  const std::string bytes = MakeLog(10, 34);
  EXPECT_EQ(Try(bytes, {{LogFileImage::OffsetOf(2) + 80, 0, "?"}, {LogFileImage::OffsetOf(8) + 80, 1, ""}}),
            "");
}

// After 26 bytes were lost, the seconds of each message are where the number of the next one was.
TEST_F(LostAndAddedBytes, SecondsThatCountAreNotTakenForNumbers) {
  RingModel log(10);
  for (int i = 0; i < 8; ++i)
    log.Submit(MakeBody(i * 1000, std::string(static_cast<std::size_t>(i), 'a'), "s", 0));
  log.Flush();
  const std::string bytes = log.FileBytes();
  for (std::uint64_t slot = 0; slot < 7; ++slot) {
    for (const std::uint64_t place : {25U, 80U, 300U})
      EXPECT_EQ(Try(bytes, {{LogFileImage::OffsetOf(slot) + place, 26, ""}}), "") << slot << " " << place;
  }
}

TEST_F(LostAndAddedBytes, MessageBeforeALostYearIsSaved) {
  std::string bytes = MakeLog(10, 9);
  const std::uint64_t at = LogFileImage::OffsetOf(4) - 6;
  bytes[at - 1] = '\1';  // is then read as a part of the year
  EXPECT_EQ(Try(bytes, {{at, 23, ""}}), "");
}

// The size of the file does not show that bytes moved; the zeros of texts are read as the number 0.
TEST_F(LostAndAddedBytes, AsManyBytesLostAsAddedElsewhereMoveOnlyTheSlotsBetween) {
  for (const std::string& bytes : {MakeLog(12, 28), MakeLog(30, 9), MakeLog(12, 4)}) {
    std::vector<std::vector<Change>> changes;
    for (std::uint64_t slot = 1; slot + 5 < 11; ++slot) {
      for (const std::uint64_t place : {15U, 132U, 301U, 540U}) {
        for (const std::size_t count : {1U, 7U, 24U, 89U, 201U}) {
          const std::uint64_t at = LogFileImage::OffsetOf(slot) + place;
          for (std::uint64_t to = at + 5 * kSlot; to < bytes.size(); to += 2 * kSlot + 3)
            changes.push_back({{at, count, ""}, {to, 0, std::string(count, '\0')}});
        }
      }
    }
    TryAll(bytes, changes);
  }
}

// After 10 bytes were added, the tail of each message is where the number of the next one was.
TEST_F(LostAndAddedBytes, TailsThatCountAreNotTakenForNumbers) {
  std::string bytes = MakeLog(10, 22);
  for (std::uint64_t slot = 0; slot < 10; ++slot) {
    const auto number = static_cast<std::uint32_t>(LogFileImage(bytes).Slot(slot).sequence);
    std::memcpy(&bytes[LogFileImage::OffsetOf(slot) + kNeeded - sizeof(number)], &number, sizeof(number));
  }
  for (std::uint64_t slot = 0; slot < 10; ++slot) {
    const std::uint64_t at = LogFileImage::OffsetOf(slot) + 80;
    EXPECT_EQ(Try(bytes, {{at, 0, std::string(10, '\0')}}), "");
    EXPECT_EQ(Try(bytes, {{at, 0, std::string(kSlot + 10, '\0')}}), "");
    if (slot < 9) {
      EXPECT_EQ(Try(bytes, {{at, kSlot - 10, ""}}), "");
    }
  }
}

TEST_F(LostAndAddedBytes, FirstMessageThatLooksMovedDoesNotMoveTheSlots) {
  for (const int others : {0, 1, 9}) {
    RingModel log(12);
    LogMessageBody body = MakeBody(0, "year 1, and an origin that reads as a year", "Clock", 0);
    body.timestamp[0] = 1;
    for (std::uint8_t& byte : body.origin) byte = 14;
    log.Submit(body);
    for (int i = 1; i <= others; ++i) log.Submit(MakeBody(i, "message", "Camera", 0));
    log.Flush();
    const std::string bytes = log.FileBytes();
    EXPECT_EQ(TamLogClient::VerifyLogFile(LogFileImage(bytes)).Damage(), 0U) << others;
    EXPECT_EQ(Saved(bytes).count(BodyBytes(LogMessage{0, body, {}})), 1U) << others;
  }
}

// Their numbers do not follow each other: those of other senders' messages lie between.
TEST_F(LostAndAddedBytes, ManyMessagesThatLookMovedDoNotMoveTheSlots) {
  LogMessageBody crafted = MakeBody(0, "an impossible time, and an origin that reads as a year", "Clock", 0);
  for (std::uint8_t& byte : crafted.origin) byte = 14;
  for (const std::int16_t year :
       {std::int16_t{1}, std::int16_t{-1}}) {  // sorted in before and after the others
    for (const int words : {1, 7}) {
      for (int i = 0; i < words; ++i) crafted.timestamp[i] = year;
      RingModel log(90);
      std::multiset<std::string> bodies;
      for (int i = 0; i < 80; ++i) {
        const LogMessageBody body = i % 2 == 0 ? crafted : MakeBody(i, "message", "Camera", 0);
        bodies.insert(BodyBytes(LogMessage{0, body, {}}));
        log.Submit(body);
        log.Flush();
      }
      const std::string bytes = log.FileBytes();
      EXPECT_EQ(TamLogClient::VerifyLogFile(LogFileImage(bytes)).Damage(), 0U) << year << " " << words;
      EXPECT_TRUE(Saved(bytes) == bodies) << year << " " << words;
    }
  }
}

// Texts that hold the beginning of a message each, sorted in among others and rewritten by the server.
TEST_F(LostAndAddedBytes, MessagesWithinTextsDoNotMoveTheSlotsOfASoundLog) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    Random random(seed);
    RingModel log(static_cast<std::int32_t>(2 + Pick(random, 30)));
    const std::size_t shift = 40 + Pick(random, 440);
    const auto year = static_cast<std::int16_t>(static_cast<int>(Pick(random, 3)) - 1);
    const std::size_t flush = 1 + Pick(random, 5);
    for (int i = 0; i < 60; ++i) {
      LogMessage outer{0, MakeBody(i, "message " + std::to_string(i), "Camera", 0), {}};
      if (Pick(random, 3) > 0) {
        const LogMessage inner{Pick(random, 100), MakeBody(i, "inner", "In", 1), {}};
        const std::size_t length = std::min<std::size_t>(60, kNeeded - shift);
        std::memcpy(reinterpret_cast<char*>(&outer) + shift, &inner, length);
        std::fill_n(outer.body.timestamp, 7, year);
        outer.body.source[kTextSize - 1] = outer.body.text[kTextSize - 1] = '\0';
      }
      log.Submit(outer.body);
      if (static_cast<std::size_t>(i) % flush == 0) log.Flush();
    }
    log.Flush();
    const std::string bytes = log.FileBytes();
    Bodies untouched;
    Bodies all;
    Sort(bytes, {}, untouched, all);
    EXPECT_TRUE(Saved(bytes) == all) << seed;
    EXPECT_TRUE(PlanRepair(LogFileImage(bytes)).breaks.empty()) << seed;
  }
}

// After 26 bytes were lost, the second of the last message is where its number was. Nothing else shows the
// move: the bytes were added again after the end of the ring.
TEST_F(LostAndAddedBytes, LastMessageWhoseSecondReadsLikeItsNumberIsSaved) {
  RingModel log(38);
  for (int i = 0; i < 13; ++i) log.Submit(MakeBody(i * 1000, std::string(1, 'a'), "s", 0));
  log.Flush();
  const std::string bytes = log.FileBytes();
  EXPECT_EQ(Try(bytes, {{LogFileImage::OffsetOf(11) + 25, 26, ""},
                        {LogFileImage::OffsetOf(17) + 505, 0, std::string(26, '\0')}}),
            "");
}

// The size of the file does not show that bytes moved, and the messages before and after are touched.
TEST_F(LostAndAddedBytes, OneMessageBetweenTwoTouchedOnesIsSaved) {
  const std::string bytes = MakeLog(12, 28);
  std::vector<std::vector<Change>> changes;
  for (std::uint64_t slot = 0; slot + 2 < 12; ++slot) {
    for (std::uint64_t count = 1; count < 2 * kSlot; count += 37) {
      const std::uint64_t before = LogFileImage::OffsetOf(slot) + 180;
      const std::uint64_t after = LogFileImage::OffsetOf(slot + 2) + 162;
      if (after + count > bytes.size()) break;
      changes.push_back({{before, 0, std::string(count, '+')}, {after, count, ""}});
      if (count > 180) continue;
      changes.push_back({{before, count, ""}, {after, 0, std::string(count, '+')}});
    }
  }
  TryAll(bytes, changes);
}

TEST_F(LostAndAddedBytes, MessagesThatMovedBehindTheEndOfALogThatIsNotFullAreSaved) {
  const std::string bytes = MakeLog(4, 3);
  EXPECT_EQ(Try(bytes, {{LogFileImage::OffsetOf(0) + 288, 0, std::string(656, '\0')},
                        {LogFileImage::OffsetOf(1) + 152, 0, std::string(976, 'o')}}),
            "");
}

// Only the zeros before the last message show that it moved.
TEST_F(LostAndAddedBytes, LastMessageAfterZerosInItsNumberIsSaved) {
  for (const int messages : {5, 12}) {
    const std::string bytes = MakeLog(12, messages);
    for (const std::size_t count : {772U, 100U, 559U, 1500U}) {
      for (std::uint64_t place = 1; place < 8; ++place) {
        const Change added{LogFileImage::OffsetOf(static_cast<std::uint64_t>(messages) - 1) + place, 0,
                           std::string(count, '\0')};
        EXPECT_EQ(Try(bytes, {added, {LogFileImage::OffsetOf(0) + 300, count, ""}}), "")
            << count << " " << place;
        const std::uint64_t unused = LogFileImage::OffsetOf(9);
        if (messages > 9) continue;
        EXPECT_EQ(Try(bytes, {added, {unused, count, ""}}), "") << count << " " << place;
      }
    }
  }
}

// After a full rewrite all numbers are 0. The tail is then where the number of the next message was.
TEST_F(LostAndAddedBytes, MessageBeforeLostPaddingIsSavedWhateverItsTailIs) {
  std::string bytes = MakeLog(10, 9);
  for (std::uint64_t slot = 0; slot < 9; ++slot) {
    std::memset(&bytes[LogFileImage::OffsetOf(slot)], 0, 8);
    bytes[LogFileImage::OffsetOf(slot) + kNeeded - 4] = '\1';
  }
  EXPECT_EQ(Try(bytes, {{LogFileImage::OffsetOf(2) + 4, 10, ""}}), "");
}

TEST_F(LostAndAddedBytes, MessageOfALongSourceBeforeLostPaddingIsSaved) {
  RingModel log(10);
  for (int i = 0; i < 5; ++i) log.Submit(MakeBody(i, std::to_string(i), std::string(kTextSize - 2, 's'), 0));
  log.Flush();
  EXPECT_EQ(Try(log.FileBytes(), {{LogFileImage::OffsetOf(2) - 6, 14, ""}}), "");
}

TEST_F(LostAndAddedBytes, SeveralBreaksInOneFileAreAllFound) {
  const std::string bytes = MakeLog(40, 90);
  Random random(5);
  std::vector<std::vector<Change>> changes;
  for (int i = 0; i < 1500; ++i) {
    std::vector<Change> some;
    for (std::size_t j = 2 + Pick(random, 3); j > 0; --j) {
      const std::uint64_t at = kSlotsOffset + Pick(random, bytes.size() - kSlotsOffset - 3 * kSlot);
      const bool apart = std::all_of(some.begin(), some.end(), [at](const Change& other) {
        return at > other.at + 4 * kSlot || other.at > at + 4 * kSlot;
      });
      if (!apart) continue;
      const std::size_t count = 1 + Pick(random, 2 * kSlot);
      if (Pick(random, 2) == 0) {
        some.push_back({at, count, ""});
      } else {
        some.push_back({at, 0, Filling(static_cast<int>(Pick(random, 5)), count, bytes, at)});
      }
    }
    changes.push_back(some);
  }
  TryAll(bytes, changes);
}

}  // namespace
