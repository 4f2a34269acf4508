// Flips every bit of a small log file in turn. Records the rules that notice it, what the real opening of the
// file does at this start and at the next one, and what the checker and the repair make of it. The two tables
// of the results are compared with those of docs/damage_table.md; TAMLOG_DAMAGE_FILES in the environment
// prints them.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "store/message_file_server.h"
#include "store/server_configuration.h"
#include "tests/client/file/damaged_files.h"
#include "tests/native/machine.h"
#include "tests/support/ring_model.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace {

using TamLogClient::ImageOf;
using TamLogClient::LogFileImage;
using TamLogClient::PlanRepair;
using TamLogClient::RuleName;
using TamLogClient::VerifyLogFile;
using TamLogTest::BodiesInRing;
using TamLogTest::BodyBytes;
using TamLogTest::ServerKeeps;
using TamLogUtil::Timeout;

constexpr std::int32_t kCapacity = 3;
constexpr char kPath[] = "C:\\Logs.dat";
using Table = std::vector<std::string>;

// The first lines of the document's two tables.
const Table kNoticedHead{"| Field | Bits | Noticed as (bits) |", "|---|---|---|"};
const Table kOutcomeHead{"| Field | Keep | Empty | Start | Next | Both | Altered | Fewer | Carved |",
                         "|---|---|---|---|---|---|---|---|---|"};

using Bodies = std::multiset<std::string>;

// Two messages in a ring of three, so that one slot is unused. The newer one's texts have the maximum length:
// the zero in their last byte is all that terminates them.
std::string SmallFile() {
  TamLogTest::RingModel log(kCapacity);
  log.Submit(TamLogTest::MakeBody(1500, "first", "Stage", 1));
  log.Submit(TamLogTest::MakeBody(2500, std::string(256, 't'), std::string(256, 's'), 2));
  log.Flush();
  auto snapshot = log.Snapshot();
  snapshot.header.serverRunning = 0;
  return ImageOf(snapshot);
}

std::string FieldInSlot(std::size_t offset) {
  struct Field {
    std::size_t end;
    const char* name;
  };
  static constexpr std::array<Field, 12> fields{{{8, "sequence"},
                                                 {16, "origin"},
                                                 {18, "year"},
                                                 {20, "month"},
                                                 {22, "day"},
                                                 {24, "hour"},
                                                 {30, "minute to millisecond"},
                                                 {32, "spare"},
                                                 {36, "type"},
                                                 {293, "source"},
                                                 {550, "text"},
                                                 {554, "tail"}}};
  for (const Field& field : fields) {
    if (offset < field.end) return field.name;
  }
  return "padding";
}

std::string FieldAt(std::size_t offset) {
  static constexpr std::array<std::size_t, 9> ends{4, 5, 8, 12, 16, 20, 24, 32, 40};
  static constexpr std::array<const char*, 10> names{
      "readCount", "serverRunning", "padding",     "messageCount", "maxMessages",
      "nextSlot",  "padding",       "changeCount", "rewriteCount", "nextSequence"};
  if (offset < sizeof(LogFileHeader)) {
    const auto* const end = std::upper_bound(ends.begin(), ends.end(), offset);
    return std::string("header: ") + names.at(static_cast<std::size_t>(end - ends.begin()));
  }
  if (offset < kSlotsOffset) return "lock names";
  const std::size_t slot = (offset - kSlotsOffset) / sizeof(LogMessage);
  static constexpr std::array<const char*, 3> slots{"older message: ", "newer message: ", "empty slot"};
  return slots.at(slot) + (slot == 2 ? "" : FieldInSlot((offset - kSlotsOffset) % sizeof(LogMessage)));
}

// Opens the file with the server on the machine in memory and stops it in order. Returns the messages that
// readers find in between.
Bodies StartAndStop() {
  ServerConfiguration configuration;
  configuration.logFile = kPath;
  configuration.maxMessage = kCapacity;
  for (bool& kept : configuration.typeFilter) kept = true;
  TamLogUtil::Mutex configLock;
  MessageFileServer server(&configuration, &configLock);
  server.OpenFile(kFileMapName, kHeaderLockName, kReadWaitEventName, kWriteWaitEventName);
  const std::vector<std::string> bodies = BodiesInRing(NativeMachine::ReadFile(kPath));
  server.CloseFile(Timeout::Infinite);
  return {bodies.begin(), bodies.end()};
}

Bodies SavedBodies(const std::string& bytes, bool carve) {
  const LogFileImage image(bytes);
  Bodies bodies;
  for (const auto& saved : PlanRepair(image, {.carve = carve}).oldestFirst) {
    bodies.insert(BodyBytes(SavedMessageOf(image, saved)));
  }
  return bodies;
}

std::size_t Found(const Bodies& bodies, const Bodies& saved) {
  return static_cast<std::size_t>(
      std::count_if(bodies.begin(), bodies.end(), [&](const auto& body) { return saved.count(body) > 0; }));
}

struct BitRow {
  std::size_t bits = 0;
  std::map<std::string, std::size_t> rules;
  std::size_t kept = 0;       // by the rules
  std::size_t after = 0;      // the file's two messages, with the bit in them, are there after a start
  std::size_t afterNext = 0;  // and after the next start
  std::size_t unchanged = 0;  // both messages saved as they were
  std::size_t altered = 0;    // two saved, one with a changed byte
  std::size_t fewer = 0;      // less than two saved
  std::size_t carvedBoth = 0;
};

// The bodies of the first two slots, independent of the header.
Bodies BodiesInSlots(const std::string& bytes) {
  const LogFileImage image(bytes);
  return {BodyBytes(image.Slot(0)), BodyBytes(image.Slot(1))};
}

void TryStarts(const std::string& bytes, std::size_t bit, bool kept, BitRow& row) {
  NativeMachine::Reset();
  NativeMachine::WriteFile(kPath, bytes);
  const Bodies inFile = BodiesInSlots(bytes);
  const Bodies now = StartAndStop();
  const Bodies next = StartAndStop();
  if (now == inFile) ++row.after;
  if (next == inFile) ++row.afterNext;
  // A file that breaks a rule is emptied and stays empty.
  if (!kept) {
    EXPECT_TRUE(now.empty()) << bit;
  }
  EXPECT_TRUE(next == now || next.empty()) << bit;
}

void TryBit(const std::string& whole, const Bodies& bodies, std::size_t bit, BitRow& row) {
  std::string bytes = whole;
  bytes[bit / 8] = static_cast<char>(static_cast<unsigned char>(bytes[bit / 8]) ^ (1U << (bit % 8)));
  const auto report = VerifyLogFile(LogFileImage(bytes));
  const bool kept = ServerKeeps(bytes);
  EXPECT_EQ(report.Accepted(), kept) << bit;
  ++row.bits;
  row.kept += kept ? 1 : 0;
  TryStarts(bytes, bit, kept, row);
  std::set<std::string> rules;
  for (const auto& finding : report.findings) rules.insert(RuleName(finding.rule));
  for (const std::string& rule : rules) ++row.rules[rule];
  const Bodies saved = SavedBodies(bytes, false);
  const std::size_t same = Found(bodies, saved);
  if (saved.size() < bodies.size()) {
    ++row.fewer;
  } else {
    ++(same == bodies.size() ? row.unchanged : row.altered);
  }
  const std::size_t carved = Found(bodies, SavedBodies(bytes, true));
  if (carved == bodies.size()) ++row.carvedBoth;
  EXPECT_GE(carved, Found(bodies, BodiesInSlots(bytes))) << bit;
}

std::string NoticedRow(const std::string& field, const BitRow& row) {
  std::string rules;
  for (const auto& [rule, bits] : row.rules) {
    rules += (rules.empty() ? "" : ", ") + rule + " (" + std::to_string(bits) + ")";
  }
  return "| " + field + " | " + std::to_string(row.bits) + " | " + rules + " |";
}

std::string OutcomeRow(const std::string& field, const BitRow& row) {
  std::string text = "| " + field + " |";
  for (const std::size_t number : {row.kept, row.bits - row.kept, row.after, row.afterNext, row.unchanged,
                                   row.altered, row.fewer, row.carvedBoth}) {
    text += " " + std::to_string(number) + " |";
  }
  return text;
}

// The document's table that begins with the line `head`.
Table TableOfTheDocument(const std::string& head) {
  std::ifstream document(DAMAGE_DOCUMENT);
  Table lines;
  bool inTable = false;
  for (std::string line; std::getline(document, line);) {
    if (line == head) inTable = true;
    if (inTable && (line.empty() || line[0] != '|')) break;
    if (inTable) lines.push_back(line);
  }
  return lines;
}

TEST(FlippedBits, AreJudgedByTheCheckerAndTheServerAsTheDocumentSays) {
  const std::string whole = SmallFile();
  const std::vector<std::string> ring = BodiesInRing(whole);
  const Bodies bodies(ring.begin(), ring.end());
  std::vector<std::string> order;
  std::map<std::string, BitRow> rows;
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    const std::string field = FieldAt(bit / 8);
    if (!rows.contains(field)) order.push_back(field);
    TryBit(whole, bodies, bit, rows[field]);
  }
  NativeMachine::Reset();
  Table noticed = kNoticedHead;
  Table outcome = kOutcomeHead;
  for (const std::string& field : order) {
    noticed.push_back(NoticedRow(field, rows[field]));
    outcome.push_back(OutcomeRow(field, rows[field]));
  }
  EXPECT_EQ(TableOfTheDocument(kNoticedHead[0]), noticed) << "of " << DAMAGE_DOCUMENT;
  EXPECT_EQ(TableOfTheDocument(kOutcomeHead[0]), outcome) << "of " << DAMAGE_DOCUMENT;
  if (std::getenv("TAMLOG_DAMAGE_FILES") == nullptr) return;
  for (const Table& table : {noticed, outcome}) {
    for (const std::string& line : table) std::printf("%s\n", line.c_str());
    std::printf("\n");
  }
}

}  // namespace
