// The claims of conformance/pipe_claims.c hold for the small independent foreign_server, and each of them
// fails when that server breaks it.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

#include "tests/system/platform.h"

using std::chrono::seconds;

namespace {

struct Verdict {
  std::optional<std::uint32_t> exitCode;
  std::string table;

  bool Fails(const std::string& claim) const {
    return table.find("FAILS   pipes   " + claim + ' ') != std::string::npos;
  }
};

// Runs the claims against a server that breaks `broken`; against a good one when it is empty.
Verdict Judge(const std::string& broken, const std::string& options) {
  ChildProcess server("\"" + OwnDirectory() + "\\foreign_server.exe\" " + broken);
  EXPECT_EQ(server.ReadLine(seconds(30)), "ready");
  ChildProcess claims("\"" + OwnDirectory() + "\\pipe_claims.exe\" " + options);
  Verdict verdict;
  verdict.table = claims.FinishOutput(seconds(120));
  verdict.exitCode = claims.WaitForEnd(seconds(1));
  server.CloseInput();
  EXPECT_EQ(server.WaitForEnd(seconds(10)), 0U);
  return verdict;
}

void ExpectEachFails(const std::string& options, std::initializer_list<const char*> claims) {
  for (const char* claim : claims) {
    const Verdict verdict = Judge(claim, options);
    EXPECT_EQ(verdict.exitCode, 1U) << claim;
    EXPECT_TRUE(verdict.Fails(claim)) << claim << '\n' << verdict.table;
  }
}

}  // namespace

TEST(ForeignServer, HoldsEveryClaim) {
  const Verdict verdict = Judge("", "--change --restart --empty");
  EXPECT_EQ(verdict.exitCode, 0U) << verdict.table;
  EXPECT_NE(verdict.table.find("\n43 claims hold, 0 fail\n"), std::string::npos) << verdict.table;
}

// Which breaks no claim: a client does not close the request pipe of a server that is slow.
TEST(ForeignServer, HoldsTheClaimsWithASecondAndAHalfBetweenTheTwoPipesOfAPair) {
  const Verdict verdict = Judge("slow-pair", "");
  EXPECT_EQ(verdict.exitCode, 0U) << verdict.table;
}

TEST(ForeignServer, HoldsTheClaimsAboutIdleConnections) {
  const Verdict verdict = Judge("", "--idle");
  EXPECT_EQ(verdict.exitCode, 0U) << verdict.table;
}

TEST(BrokenServer, FailsTheClaimAboutWhatItAnswersWrongly) {
  ExpectEachFails("", {"connect", "ping", "map-name", "log-file", "default-path", "settings",
                       "no-such-filter", "unknown-request", "in-order", "empty", "short", "too-long",
                       "too-long-often", "two-clients", "other-leaves"});
}

TEST(BrokenServer, FailsTheClaimAboutItsLog) {
  ExpectEachFails("", {"mapping", "header", "lock-names", "events"});
}

TEST(BrokenServer, FailsTheClaimAboutWhatItStores) {
  ExpectEachFails("--change", {"submit-dropped", "submit", "stored", "not-stored", "change-count"});
}

TEST(BrokenServer, FailsTheClaimAboutItsFiltersAndItsPath) {
  ExpectEachFails("--change", {"clear-filters", "filter-order", "filter-keeps", "filter-empty",
                               "filter-drops", "filters-back", "set-log-file"});
}

TEST(BrokenServer, FailsTheClaimAboutItsRestart) {
  ExpectEachFails("--restart --restart-seconds 3", {"restart-later", "set-settings", "restart-breaks",
                                                    "running-0", "restart-over", "settings-kept"});
}

TEST(BrokenServer, FailsTheClaimAboutAnEmptyLog) {
  ExpectEachFails("--empty --restart-seconds 3",
                  {"clear", "cleared", "clear-restarts", "after-clear", "capacity-limits", "burst"});
}

TEST(BrokenServer, FailsTheClaimAboutAnEarlyEnd) {
  ExpectEachFails("--idle", {"idle-9-s"});
}

TEST(BrokenServer, FailsTheClaimsAboutEndsThatDoNotCome) {
  const Verdict verdict = Judge("idle-12-s not-reading", "--idle");
  EXPECT_TRUE(verdict.Fails("idle-12-s")) << verdict.table;
  EXPECT_TRUE(verdict.Fails("not-reading")) << verdict.table;
  EXPECT_FALSE(verdict.Fails("idle-9-s")) << verdict.table;
}
