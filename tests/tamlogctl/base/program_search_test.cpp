// Programs are found where only their user can put them.

#include "tamlogctl/base/program_search.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "client/message/win32.h"
#include "tamlogctl/base/wide_text.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"

namespace {

using TamLogCtl::FindProgram;
using TamLogCtl::Utf8ToWide;

class ProgramSearch : public testing::Test {
 protected:
  ProgramSearch() {
    for (const char* const name : {"first", "second dir", "here"})
      std::filesystem::create_directory(folder.File(name));
    std::filesystem::current_path(folder.File("here"));
    SetPath(Wide(folder.File("first")) + L";" + Wide(folder.File("second dir")));
    SetEnvironmentVariableW(L"PATHEXT", L".com;.exe;.cmd");
  }
  ~ProgramSearch() override { std::filesystem::current_path(before); }

  static std::wstring Wide(const std::string& text) { return Utf8ToWide(text); }
  static void SetPath(const std::wstring& path) { SetEnvironmentVariableW(L"PATH", path.c_str()); }
  void Put(const std::string& name) const { TestSupport::WriteBytes(folder.File(name), "x"); }
  // Returns the program of the command, relative to the folder; empty when there is none.
  std::string Found(const std::wstring& command) const {
    const auto found = FindProgram(command);
    if (!found) return "";
    EXPECT_TRUE(found->line.starts_with(L"\"" + found->program + L"\""))
        << TamLogCtl::WideToUtf8(found->line);
    return std::filesystem::path(found->program).lexically_relative(folder.Path()).generic_string();
  }

  TestSupport::TempDir folder;
  const std::filesystem::path before = std::filesystem::current_path();
};

TEST_F(ProgramSearch, CurrentDirectoryIsNeverSearched) {
  Put("here/less.exe");
  EXPECT_EQ(Found(L"less"), "");
  EXPECT_EQ(Found(L"less.exe"), "");
  for (const wchar_t* const path : {L".", L"", L";;", L"\"\"", L".;..\\here", L"\\", L"Z:"}) {
    SetPath(path);
    EXPECT_EQ(Found(L"less"), "") << TamLogCtl::WideToUtf8(path);
  }
  for (const wchar_t* const name : {L".\\less", L"./less.exe", L"..\\here\\less.exe", L"Z:less", L"\\less"})
    EXPECT_EQ(Found(name), "") << TamLogCtl::WideToUtf8(name);
}

TEST_F(ProgramSearch, DirectoriesOfThePathAreSearchedInTheirOrder) {
  Put("here/less.exe");
  Put("second dir/less.exe");
  EXPECT_EQ(Found(L"less -R"), "second dir/less.exe");
  Put("first/less.cmd");
  EXPECT_EQ(Found(L"less -R"), "first/less.cmd");
  EXPECT_EQ(Found(L"less.exe -R"), "second dir/less.exe");
  Put("first/less.com");
  EXPECT_EQ(Found(L"less"), "first/less.com");
  Put("first/less");
  EXPECT_EQ(Found(L"less"), "first/less.com");  // the system runs no file without an extension by its name
  SetPath(L"\"" + Wide(folder.File("second dir")) + L"\\\"");
  EXPECT_EQ(Found(L"less"), "second dir/less.exe");
}

TEST_F(ProgramSearch, ArgumentsAndQuotesAreKept) {
  Put("second dir/less.exe");
  const std::wstring program = Wide(folder.File("second dir")) + L"\\less.exe";
  const auto found = FindProgram(L"  \"" + program + L"\" -R \"a b\"");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->program, program);
  EXPECT_EQ(found->line, L"\"" + program + L"\" -R \"a b\"");
  EXPECT_FALSE(FindProgram(L""));
  EXPECT_FALSE(FindProgram(L"   "));
  EXPECT_FALSE(FindProgram(L"\""));
  EXPECT_FALSE(FindProgram(L"nothing -R"));
  EXPECT_FALSE(FindProgram(Wide(folder.File("first"))));
}

}  // namespace
