#include "tamlogctl/base/scratch_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/files.h"

namespace {

using TamLogCtl::ScratchFile;

TEST(ScratchFileTest, IsReadUnderItsNameAndGoneAfterwards) {
  std::string problem;
  auto file = ScratchFile::Create(problem);
  ASSERT_TRUE(file) << problem;
  EXPECT_TRUE(file->Write("one "));
  EXPECT_TRUE(file->Write("two"));
  EXPECT_EQ(TestSupport::ReadBytes(file->Path()), "one two");
  EXPECT_EQ(TestSupport::ReadBytes(file->Path()), "one two");  // each reader begins at the beginning
  EXPECT_EQ(std::filesystem::file_size(file->Path()), 7U);
  const std::string path = file->Path();
  file.reset();
  EXPECT_EQ(TestSupport::ReadBytes(path), "");
}

TEST(ScratchFileTest, FilesOfOneRunAreSeparate) {
  std::string problem;
  const auto one = ScratchFile::Create(problem);
  const auto two = ScratchFile::Create(problem);
  ASSERT_TRUE(one && two) << problem;
  EXPECT_TRUE(one->Write("one") && two->Write("two"));
  EXPECT_EQ(TestSupport::ReadBytes(one->Path()), "one");
  EXPECT_EQ(TestSupport::ReadBytes(two->Path()), "two");
}

#ifdef _WIN32
TEST(ScratchFileTest, FilesOfKilledRunsAreRemoved) {
  const auto left = std::filesystem::temp_directory_path() / "tamlogctl-0123456789abcdef.tmp";
  TestSupport::WriteBytes(left.string(), "left over");
  std::string problem;
  const auto file = ScratchFile::Create(problem);
  ASSERT_TRUE(file) << problem;
  EXPECT_FALSE(std::filesystem::exists(left));
}
#endif

}  // namespace
