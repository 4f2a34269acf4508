// How much of damaged log files is recovered. Run by hand it prints the first table of docs/damage_table.md
// (tests/native/flipped_bits_test.cpp prints those of every bit):
//
//   TAMLOG_DAMAGE_FILES=20000 client_file_tests --gtest_filter='DamageTable*'

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "client/message/log_message_view.h"
#include "tests/client/file/damaged_files.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::LogFileImage;
using TamLogClient::LogMessageView;
using TamLogClient::PlanRepair;
using TamLogClient::VerifyLogFile;
using TamLogTest::BodiesInRing;
using TamLogTest::BodyBytes;
using TamLogTest::Damage;
using TamLogTest::DamageName;
using TamLogTest::Pick;
using TamLogTest::Random;
using TamLogTest::ServerKeeps;

bool Printing() {
  return std::getenv("TAMLOG_DAMAGE_FILES") != nullptr;
}

int FilesOfEachDamage() {
  constexpr int kSmall = 300;
  const char* const text = std::getenv("TAMLOG_DAMAGE_FILES");
  return text == nullptr ? kSmall : std::max(1, std::atoi(text));
}

// Returns how many of `bodies` are still whole somewhere in the file.
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
  std::size_t plainFiles = 0;  // whole without carving
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
  const std::size_t plain = Found(bodies, SavedBodies(bytes, false));
  row.plain += plain;
  row.plainFiles += plain >= intact ? 1 : 0;
  row.carved += carved;
  row.wholeFiles += carved >= intact ? 1 : 0;
}

TEST(DamageTable, EveryIntactMessageComesBackOutOfFilesDamagedAtRandom) {
  const int files = FilesOfEachDamage();
  if (Printing()) {
    std::printf(
        "| Damage | Files | Kept | Messages | Intact | Saved | Carved | Whole "
        "|\n|---|---|---|---|---|---|---|---|\n");
  }
  for (std::size_t i = 0; i < TamLogTest::kDamages; ++i) {
    const auto damage = static_cast<Damage>(i);
    Random random(static_cast<unsigned>(i) + 1);
    Row row;
    for (int file = 0; file < files; ++file) Try(damage, random, row);
    // Other bytes that look like a message may hide the message after them: a handful in a million.
    EXPECT_GE(row.wholeFiles * 1000, row.files * 999) << DamageName(damage);
    if (damage == Damage::Cut || damage == Damage::BytesLost || damage == Damage::BytesAdded) {
      EXPECT_GE(row.plainFiles * 1000, row.files * 999) << DamageName(damage);
    }
    if (Printing()) {
      std::printf("| %s | %zu | %zu | %zu | %zu | %zu | %zu | %zu |\n", DamageName(damage), row.files,
                  row.kept, row.messages, row.intact, row.plain, row.carved, row.wholeFiles);
    }
  }
}

}  // namespace
