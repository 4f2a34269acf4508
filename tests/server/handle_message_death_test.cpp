// A text that does not fit its reply field ends the process at once: no truncated text is ever sent, and no
// handler and no exit hook runs.

#include <gtest/gtest.h>

#include "tests/server/faults.h"
#include "tests/server/requests.h"

namespace {

constexpr int kEnded = static_cast<int>(0xC0000417);

class OverlongTextDeathTest : public testing::Test {
 protected:
  OverlongTextDeathTest() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }
};

TEST_F(OverlongTextDeathTest, PathOf1024CharactersEndsTheProcessWhenItIsRequested) {
  EXPECT_EXIT(
      {
        ServerService service;
        Ask(service, MakeRequest(RequestCode::SetLogFile, std::string(1024, 'p')));
        Ask(service, RequestCode::GetLogFile);
      },
      testing::ExitedWithCode(kEnded), "");
}

TEST_F(OverlongTextDeathTest, FilterOf128CharactersEndsTheProcessWhenItIsRequested) {
  EXPECT_EXIT(
      {
        ServerService service;
        AddFilter(service, std::string(128, 'f'), 0);
        GetFilter(service, 0);
      },
      testing::ExitedWithCode(kEnded), "");
}

TEST_F(OverlongTextDeathTest, FilterThatRanIntoItsKindEndsTheProcessWhenItIsRequested) {
  EXPECT_EXIT(
      {
        ServerService service;
        Ask(service, MakeRequest(RequestCode::AddFilter, std::string(1024, 'f')));
        GetFilter(service, 0);
      },
      testing::ExitedWithCode(kEnded), "");
}

TEST_F(OverlongTextDeathTest, DefaultPathOf1024CharactersEndsTheProcess) {
  EXPECT_EXIT(
      {
        ServerService service;
        faults::executablePathIsLong = true;
        Ask(service, RequestCode::GetDefaultLogFile);
      },
      testing::ExitedWithCode(kEnded), "");
}

}  // namespace
