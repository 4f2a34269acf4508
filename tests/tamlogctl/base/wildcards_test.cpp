#include "tamlogctl/base/wildcards.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

namespace {

using TamLogCtl::MatchingFiles;
using Names = std::vector<std::string>;

class Wildcards : public testing::Test {
 protected:
  Wildcards() {
    for (const char* const name : {"b.dat", "a.dat", "A2.DAT", "notes.txt", "c.dat.gz"}) {
      TestSupport::WriteBytes(folder.File(name), "x");
    }
    std::filesystem::create_directory(folder.File("folder.dat"));
  }

  Names Matching(const std::string& pattern) const {
    Names names;
    for (const std::string& path : MatchingFiles(folder.File(pattern))) {
      EXPECT_EQ(path, folder.File(std::filesystem::path(path).filename().string()));
      names.push_back(std::filesystem::path(path).filename().string());
    }
    return names;
  }

  TestSupport::TempDir folder;
};

TEST_F(Wildcards, FilesThatMatchComeInOrderOfTheirNames) {
  EXPECT_EQ(Matching("*.dat"), (Names{"A2.DAT", "a.dat", "b.dat"}));
  EXPECT_EQ(Matching("?.dat"), (Names{"a.dat", "b.dat"}));
  EXPECT_EQ(Matching("*.dat*"), (Names{"A2.DAT", "a.dat", "b.dat", "c.dat.gz"}));
  EXPECT_EQ(Matching("*"), (Names{"A2.DAT", "a.dat", "b.dat", "c.dat.gz", "notes.txt"}));
}

TEST_F(Wildcards, NothingMatchesWithoutAWildcardOrADirectory) {
  EXPECT_EQ(Matching("a.dat"), Names{});
  EXPECT_EQ(Matching("*.log"), Names{});
  EXPECT_EQ(MatchingFiles("/no/such/folder/*"), Names{});
  EXPECT_EQ(MatchingFiles(""), Names{});
  EXPECT_FALSE(TamLogCtl::HasWildcards(folder.File("what?/a.dat")));
}

TEST_F(Wildcards, NameThatMatchesNothingStays) {
  EXPECT_EQ(TamLogCtl::FilesNamed(folder.File("*.log")), Names{folder.File("*.log")});
  EXPECT_EQ(TamLogCtl::FilesNamed("a.dat"), Names{"a.dat"});
  const std::size_t expected = TamLogCtl::kProgramExpandsWildcards ? 3 : 1;
  EXPECT_EQ(TamLogCtl::FilesNamed(folder.File("*.dat")).size(), expected);
}

TEST_F(Wildcards, ManyStarsTakeNoLongerThanTheProductOfTheLengths) {
  TestSupport::WriteBytes(folder.File(std::string(200, 'a')), "x");
  std::string pattern;
  for (int i = 0; i < 60; ++i) pattern += "a*";
  EXPECT_EQ(Matching(pattern + "b"), Names{});
}

}  // namespace
