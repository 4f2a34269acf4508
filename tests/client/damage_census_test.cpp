// How much of damaged log files comes back, and what every single bit of a file means to the server's rules,
// to the checker and to the repair. Run by hand it prints the tables of docs/damage_census.md:
//
//   TAMLOG_CENSUS_FILES=20000 rescue_native_tests --gtest_filter='DamageCensus*'

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "client/log_file_repair.h"
#include "client/log_file_verify.h"
#include "client/log_message_view.h"
#include "tests/client/damaged_files.h"
#include "tests/client/ring_model.h"

namespace {

using TamLogClient::FileRule;
using TamLogClient::ImageOf;
using TamLogClient::LogFileImage;
using TamLogClient::LogMessageView;
using TamLogClient::PlanRepair;
using TamLogClient::RuleName;
using TamLogClient::VerifyLogFile;
using TamLogTest::BodiesInRing;
using TamLogTest::BodyBytes;
using TamLogTest::Damage;
using TamLogTest::DamageName;
using TamLogTest::Pick;
using TamLogTest::Random;
using TamLogTest::ServerKeeps;

bool Printing() {
  return std::getenv("TAMLOG_CENSUS_FILES") != nullptr;
}

int FilesOfEachDamage() {
  constexpr int kSmall = 300;
  const char* const text = std::getenv("TAMLOG_CENSUS_FILES");
  return text == nullptr ? kSmall : std::max(1, std::atoi(text));
}

// Those of `bodies` that still lie in the file, whole, somewhere.
std::size_t Intact(const std::vector<std::string>& bodies, const std::string& bytes) {
  return static_cast<std::size_t>(std::count_if(bodies.begin(), bodies.end(), [&](const std::string& body) {
    return bytes.find(body) != std::string::npos;
  }));
}

std::multiset<std::string> SavedBodies(const std::string& bytes, bool carve) {
  const LogFileImage image(bytes);
  std::multiset<std::string> bodies;
  std::uint64_t key = 0;
  for (const auto& saved : PlanRepair(image, {.carve = carve}).oldestFirst) {
    const LogMessage message = SavedMessageOf(image, saved);
    EXPECT_FALSE(LogMessageView(message).Damaged());
    EXPECT_GE(TimeKey(message.body), key);
    key = TimeKey(message.body);
    bodies.insert(BodyBytes(message));
  }
  return bodies;
}

std::size_t Found(const std::vector<std::string>& bodies, const std::multiset<std::string>& saved) {
  return static_cast<std::size_t>(
      std::count_if(bodies.begin(), bodies.end(), [&](const auto& body) { return saved.count(body) > 0; }));
}

struct Row {
  std::size_t files = 0;
  std::size_t kept = 0;  // by the server
  std::size_t messages = 0;
  std::size_t intact = 0;
  std::size_t plain = 0;   // saved without carving
  std::size_t carved = 0;  // saved with carving
  std::size_t wholeFiles = 0;
};

// Damages one file, and asks the server's rules, the checker and the repair about it.
void Try(Damage damage, Random& random, Row& row) {
  std::string bytes = TamLogTest::RandomLogFile(random, static_cast<std::int32_t>(1 + Pick(random, 40)));
  auto bodies = BodiesInRing(bytes);
  std::sort(bodies.begin(), bodies.end());
  bodies.erase(std::unique(bodies.begin(), bodies.end()), bodies.end());
  TamLogTest::Inflict(damage, random, bytes);
  const bool kept = ServerKeeps(bytes);
  const LogFileImage image(bytes);
  EXPECT_EQ(VerifyLogFile(image).Accepted(), kept || bytes.empty());
  const std::size_t intact = Intact(bodies, bytes);
  const std::size_t carved = Found(bodies, SavedBodies(bytes, true));
  ++row.files;
  row.kept += kept ? 1 : 0;
  row.messages += bodies.size();
  row.intact += intact;
  row.plain += Found(bodies, SavedBodies(bytes, false));
  row.carved += carved;
  row.wholeFiles += carved >= intact ? 1 : 0;
}

TEST(DamageCensus, EveryIntactMessageComesBackOutOfFilesDamagedAtRandom) {
  const int files = FilesOfEachDamage();
  if (Printing()) {
    std::printf(
        "| Damage | Files | Kept by a server | Messages | Intact | Saved | Saved with --carve | "
        "Files with all that was intact |\n|---|---|---|---|---|---|---|---|\n");
  }
  for (std::size_t i = 0; i < TamLogTest::kDamages; ++i) {
    const auto damage = static_cast<Damage>(i);
    Random random(static_cast<unsigned>(i) + 1);
    Row row;
    for (int file = 0; file < files; ++file) Try(damage, random, row);
    // Bytes that are none may hide the message behind them when they look like one: a handful in a million.
    EXPECT_GE(row.wholeFiles * 1000, row.files * 999) << DamageName(damage);
    if (Printing()) {
      std::printf("| %s | %zu | %zu | %zu | %zu | %zu | %zu | %zu |\n", DamageName(damage), row.files,
                  row.kept, row.messages, row.intact, row.plain, row.carved, row.wholeFiles);
    }
  }
}

// Two messages in a ring of three, so that there is a slot that is not in use.
std::string SmallFile() {
  TamLogTest::RingModel log(3);
  log.Submit(TamLogTest::MakeBody(1500, "first", "Stage", 1));
  log.Submit(TamLogTest::MakeBody(2500, "second", "Laser", 2));
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
    const auto end = std::upper_bound(ends.begin(), ends.end(), offset);
    return std::string("header: ") + names.at(static_cast<std::size_t>(end - ends.begin()));
  }
  if (offset < kSlotsOffset) return "lock names";
  const std::size_t slot = (offset - kSlotsOffset) / sizeof(LogMessage);
  static constexpr std::array<const char*, 3> slots{"older message: ", "newer message: ", "empty slot"};
  return slots.at(slot) + (slot == 2 ? "" : FieldInSlot((offset - kSlotsOffset) % sizeof(LogMessage)));
}

struct BitRow {
  std::size_t bits = 0;
  std::map<std::string, std::size_t> rules;
  std::size_t kept = 0;
  std::size_t unchanged = 0;  // both messages saved as they were
  std::size_t altered = 0;    // two saved, one with a changed byte
  std::size_t fewer = 0;      // less than two saved
  std::size_t carvedBoth = 0;
};

void TryBit(const std::string& whole, const std::vector<std::string>& bodies, std::size_t bit, BitRow& row) {
  std::string bytes = whole;
  bytes[bit / 8] = static_cast<char>(static_cast<unsigned char>(bytes[bit / 8]) ^ (1U << (bit % 8)));
  const auto report = VerifyLogFile(LogFileImage(bytes));
  const bool kept = ServerKeeps(bytes);
  EXPECT_EQ(report.Accepted(), kept) << bit;
  ++row.bits;
  row.kept += kept ? 1 : 0;
  std::set<std::string> rules;
  for (const auto& finding : report.findings) rules.insert(RuleName(finding.rule));
  for (const std::string& rule : rules) ++row.rules[rule];
  const auto saved = SavedBodies(bytes, false);
  const std::size_t same = Found(bodies, saved);
  if (saved.size() < bodies.size()) {
    ++row.fewer;
  } else {
    ++(same == bodies.size() ? row.unchanged : row.altered);
  }
  const std::size_t carved = Found(bodies, SavedBodies(bytes, true));
  if (carved == bodies.size()) ++row.carvedBoth;
  EXPECT_GE(carved, Intact(bodies, bytes)) << bit;
}

TEST(DamageCensus, EveryFlippedBitIsJudgedAsTheServerJudgesIt) {
  const std::string whole = SmallFile();
  const auto bodies = BodiesInRing(whole);
  std::vector<std::string> order;
  std::map<std::string, BitRow> rows;
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    const std::string field = FieldAt(bit / 8);
    if (rows.count(field) == 0) order.push_back(field);
    TryBit(whole, bodies, bit, rows[field]);
  }
  if (!Printing()) return;
  std::printf(
      "\n| Field | Bits | Noticed as (bits) | Server keeps / empties | Repair: both as they were / one "
      "altered / fewer | --carve: both as they were |\n|---|---|---|---|---|---|\n");
  for (const std::string& field : order) {
    const BitRow& row = rows[field];
    std::string rules;
    for (const auto& [rule, bits] : row.rules)
      rules += (rules.empty() ? "" : ", ") + rule + " (" + std::to_string(bits) + ")";
    std::printf("| %s | %zu | %s | %zu / %zu | %zu / %zu / %zu | %zu |\n", field.c_str(), row.bits,
                rules.c_str(), row.kept, row.bits - row.kept, row.unchanged, row.altered, row.fewer,
                row.carvedBoth);
  }
}

}  // namespace
