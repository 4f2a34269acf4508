#include <gtest/gtest.h>

#include <array>

#include "util/helpers.h"
#include "util/win32.h"

namespace TamLogUtil {
namespace {

TEST(PathBesideExecutable, LiesInTheExecutablesDirectory) {
  std::array<char, 2048> executable{};
  ASSERT_NE(GetModuleFileNameA(nullptr, executable.data(), static_cast<DWORD>(executable.size())), 0U);
  const std::string path(executable.data());
  const std::string directory = path.substr(0, path.rfind('\\') + 1);
  EXPECT_EQ(PathBesideExecutable("Logs.dat"), directory + "Logs.dat");
  EXPECT_EQ(PathBesideExecutable(""), directory);
}

TEST(CopyBoundedOrEndProcess, CopiesATextAndItsZero) {
  std::array<char, 5> target{'x', 'x', 'x', 'x', 'x'};
  CopyBoundedOrEndProcess(target.data(), 4, "abc");
  EXPECT_EQ(target, (std::array<char, 5>{'a', 'b', 'c', '\0', 'x'}));
  CopyBoundedOrEndProcess(target.data(), 4, "");
  EXPECT_EQ(target, (std::array<char, 5>{'\0', 'b', 'c', '\0', 'x'}));
}

TEST(CopyBoundedOrEndProcessDeathTest, ATextThatDoesNotFitEndsTheProcess) {
  constexpr int kInvalidParameter = static_cast<int>(0xC0000417U);
  std::array<char, 4> target{};
  EXPECT_EXIT(CopyBoundedOrEndProcess(target.data(), target.size(), "abcd"),
              testing::ExitedWithCode(kInvalidParameter), "");
  EXPECT_EXIT(CopyBoundedOrEndProcess(target.data(), 0, ""), testing::ExitedWithCode(kInvalidParameter), "");
}

// A handler further up the stack must not be able to keep the process running.
TEST(CopyBoundedOrEndProcessDeathTest, NoHandlerCatchesTheEnd) {
  std::array<char, 4> target{};
  EXPECT_EXIT(
      {
        try {
          CopyBoundedOrEndProcess(target.data(), target.size(), std::string(1000, 'x'));
        } catch (...) {
          std::exit(0);
        }
      },
      testing::ExitedWithCode(static_cast<int>(0xC0000417U)), "");
}

}  // namespace
}  // namespace TamLogUtil
