// A path for the log file is judged by its text before any program touches it, and by what the system says
// before a server gets it.

#include "tamlogctl/server/log_path.h"

#include <gtest/gtest.h>

#include "records/pipe_protocol.h"
#include "tamlogctl/server/access_entries.h"

namespace {

using TamLogCtl::PathFacts;
using TamLogCtl::PathFile;

std::string Problem(const std::string& path) {
  return TamLogCtl::PathTextProblem(path, path.size());
}

TEST(LogPath, OrdinaryFilesOfADriveAreAccepted) {
  for (const char* const path :
       {R"(C:\Logs\Logs.dat)", "d:/Logs/x.dat", R"(C:\Logs.dat)", R"(Z:\a b\com10.dat)", R"(C:\nully\x)",
        R"(C:\a\\b.dat)", "C:\\\xC3\xA4\\\xC3\xB6.dat", R"(C:\.hidden)"}) {
    EXPECT_EQ(Problem(path), "") << path;
  }
}

TEST(LogPath, NetworkAndDevicePathsAreNamed) {
  for (const char* const path :
       {R"(\\host\share\x.dat)", "//host/share/x", R"(\/host\share\x)", R"(/\host\x)"})
    EXPECT_EQ(Problem(path), "is a network path") << path;
  for (const char* const path : {R"(\\.\PhysicalDrive0)", R"(\\?\C:\x.dat)", R"(\\?\UNC\host\share\x)",
                                 "//./pipe/x", R"(\??\C:\x.dat)"})
    EXPECT_EQ(Problem(path), "is a device path") << path;
  for (const char* const path : {R"(C:\nul)", R"(C:\Logs\CON.dat)", R"(C:\Com1)", R"(C:\lpt9 .txt)",
                                 R"(C:\aux\x.dat)", R"(C:\CONIN$)", "C:\\com\xC2\xB9.log"})
    EXPECT_EQ(Problem(path), "names a device") << path;
}

TEST(LogPath, RelativePathsAreNamed) {
  for (const char* const path :
       {"Logs.dat", R"(C:Logs.dat)", R"(\Logs\x.dat)", R"(..\x.dat)", "C:", "1:\\x.dat"})
    EXPECT_NE(Problem(path).find("is not an absolute path"), std::string::npos) << path;
  EXPECT_NE(Problem(R"(C:\Logs\..\x.dat)").find("contains '.' or '..'"), std::string::npos);
}

TEST(LogPath, NamesThatNoFileCanHaveAreNamed) {
  EXPECT_EQ(Problem(""), "is empty");
  EXPECT_EQ(Problem(R"(C:\Logs\)"), "names a directory, not a file");
  EXPECT_EQ(Problem(R"(C:\)"), "names a directory, not a file");
  EXPECT_NE(Problem(R"(C:\a.dat:stream)").find("second colon"), std::string::npos);
  EXPECT_NE(Problem(R"(C:\a*.dat)").find("characters"), std::string::npos);
  EXPECT_NE(Problem("C:\\a\x1b[2J.dat").find("control character"), std::string::npos);
  EXPECT_NE(Problem(R"(C:\a.dat.)").find("ends with a dot"), std::string::npos);
  EXPECT_NE(Problem(R"(C:\a \x.dat)").find("ends with a dot or a space"), std::string::npos);
}

TEST(LogPath, ServersOwnLogOfFailuresIsNoPlaceForMessages) {
  for (const char* const path : {R"(C:\Windows\System32\TamLogServiceLog.txt)", "d:/x/tamlogservicelog.TXT"})
    EXPECT_NE(Problem(path).find("own log of failures"), std::string::npos) << path;
  EXPECT_EQ(Problem(R"(C:\TamLogServiceLog.txt\x.dat)"), "");
  EXPECT_EQ(Problem(R"(C:\TamLogServiceLog.dat)"), "");
}

TEST(LogPath, LengthIsThatOfTheBytesThatTheServerGets) {
  const std::string path = "C:\\" + std::string(kLongestLogPath - 3, 'p');
  EXPECT_EQ(Problem(path), "");
  EXPECT_NE(Problem(path + "p").find("256 bytes, 255 are allowed"), std::string::npos);
  EXPECT_EQ(TamLogCtl::PathTextProblem(path + "p", kLongestLogPath), "");
}

TEST(LogPath, DirectoryOfAFile) {
  EXPECT_EQ(TamLogCtl::DirectoryOf(R"(C:\Logs\x.dat)"), R"(C:\Logs)");
  EXPECT_EQ(TamLogCtl::DirectoryOf(R"(C:\x.dat)"), "C:\\");
}

TEST(LogPath, EveryFactThatStopsAServerIsNamed) {
  const auto problem = [](const PathFacts& facts, std::uint64_t bytes = 1000) {
    const auto found = TamLogCtl::PathProblemOf(R"(Q:\Logs\x.dat)", facts, bytes);
    return found.problem + "|" + found.advice;
  };
  EXPECT_EQ(problem({}), "|");
  EXPECT_EQ(problem({.driveThere = false}), "there is no drive Q:|");
  EXPECT_EQ(problem({.networkDrive = true}), "the drive Q: is a network drive|");
  EXPECT_EQ(problem({.folderThere = false}),
            R"(the directory Q:\Logs does not exist|create it: mkdir "Q:\Logs")");
  EXPECT_EQ(problem({.folderIsFile = true}), R"(Q:\Logs is a file, not a directory|)");
  EXPECT_EQ(problem({.file = PathFile::Directory}), "is a directory|name a file in it");
  EXPECT_EQ(problem({.file = PathFile::InUse}), "another program has the file open|close that program");
  EXPECT_EQ(problem({.file = PathFile::Log, .readOnly = true}), "the file is read-only|");
  EXPECT_EQ(problem({.createError = 123, .createText = "Bad name (error 123)"}),
            "the file cannot be created: Bad name (error 123)|");
  EXPECT_NE(problem({.serviceMayCreate = false}).find("does not let the service"), std::string::npos);
  // What this user may not do, the service may.
  EXPECT_EQ(problem({.createError = 5, .serviceMayCreate = true}), "|");
  EXPECT_EQ(problem({.createError = 5, .createText = "Access denied (error 5)"}),
            "the file cannot be created: Access denied (error 5)|");
  EXPECT_EQ(problem({.freeBytes = 1000}), "|");
  EXPECT_NE(problem({.freeBytes = 999}).find("the log needs 1000 bytes, and only 999 bytes are free on Q:"),
            std::string::npos);
  EXPECT_EQ(problem({.fileBytes = 1, .freeBytes = 999}), "|");
}

TEST(LogPath, ExistingFilesAreDescribed) {
  EXPECT_EQ(TamLogCtl::ExistingFileText({}), "");
  EXPECT_NE(TamLogCtl::ExistingFileText({.file = PathFile::Log, .messages = 7}).find("a log with 7 messages"),
            std::string::npos);
  EXPECT_NE(TamLogCtl::ExistingFileText({.file = PathFile::Other}).find("would empty it"), std::string::npos);
}

TEST(LogPath, SizesAreReadable) {
  EXPECT_EQ(TamLogCtl::BytesText(1023), "1023 bytes");
  EXPECT_EQ(TamLogCtl::BytesText(28000240), "26.7 MiB");
  EXPECT_EQ(TamLogCtl::BytesText(std::uint64_t{5} << 30U), "5.0 GiB");
}

TEST(AccessEntries, EarlierEntriesDecide) {
  using TamLogCtl::GrantedTo;
  EXPECT_EQ(GrantedTo({}, TamLogCtl::LocalSystemSids()), 0U);
  EXPECT_EQ(
      GrantedTo({{true, false, 6, "S-1-5-18"}, {true, false, 1, "S-1-1-0"}}, TamLogCtl::LocalSystemSids()),
      7U);
  EXPECT_EQ(
      GrantedTo({{false, false, 2, "S-1-1-0"}, {true, false, 6, "S-1-5-18"}}, TamLogCtl::LocalSystemSids()),
      4U);
  EXPECT_EQ(
      GrantedTo({{true, false, 6, "S-1-5-18"}, {false, false, 2, "S-1-1-0"}}, TamLogCtl::LocalSystemSids()),
      6U);
  EXPECT_EQ(
      GrantedTo({{true, true, 6, "S-1-5-18"}, {true, false, 6, "S-1-5-21-1"}}, TamLogCtl::LocalSystemSids()),
      0U);
}

TEST(AccessEntries, OthersWithRightsAreAllButTheSystemAdministratorsAndTheUserItself) {
  using TamLogCtl::kChangesFile;
  using TamLogCtl::OthersWith;
  using Sids = std::vector<std::string>;
  const std::string self = "S-1-5-21-1-2-3-500";
  const std::string other = "S-1-5-21-1-2-3-1001";
  EXPECT_EQ(OthersWith(kChangesFile,
                       {{true, false, 0x1F01FF, "S-1-5-18"},
                        {true, false, 0x1F01FF, "S-1-5-32-544"},
                        {true, false, 0x1F01FF, self},
                        {true, false, 0x1200A9, "S-1-5-32-545"}},
                       "S-1-5-32-544", self),
            Sids{});
  for (const std::uint32_t right : {0x2U, 0x4U, 0x10000U, 0x40000U, 0x80000U, 0x10000000U, 0x40000000U})
    EXPECT_EQ(OthersWith(kChangesFile, {{true, false, right, "S-1-1-0"}}, self, self), Sids{"S-1-1-0"})
        << right;
  EXPECT_EQ(OthersWith(TamLogCtl::kFillsDirectory, {{true, false, 0x40, other}}, self, self), Sids{other});
  EXPECT_EQ(OthersWith(TamLogCtl::kMovesDirectory, {{true, false, 0x6, other}}, self, self), Sids{});
  EXPECT_EQ(OthersWith(kChangesFile, {{true, true, 2, other}, {false, false, 2, other}}, self, self), Sids{});
  EXPECT_EQ(OthersWith(kChangesFile, {{true, false, 2, other}}, other, self), Sids{other});
  EXPECT_EQ(OthersWith(kChangesFile, {}, other, self), Sids{other}) << "an owner changes the list";
}

}  // namespace
