// The directories that the packages accept, and the access lists of those that they create.

#include "packaging/setup/protected_directory.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "client/message/win32.h"
#include "packaging/setup/setup_error.h"
#include "tests/support/temp_dir.h"

// Must follow windows.h.
#include <aclapi.h>
#include <sddl.h>

namespace TamLogSetup {

namespace {

namespace fs = std::filesystem;

void MakeWithList(const fs::path& directory, const wchar_t* list) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(
      ConvertStringSecurityDescriptorToSecurityDescriptorW(list, SDDL_REVISION_1, &descriptor, nullptr));
  EXPECT_TRUE(CreateDirectoryW(directory.c_str(), nullptr));
  // Wine subtracts the umask from the list of a new directory, but not from one that is set.
  EXPECT_TRUE(SetFileSecurityW(directory.c_str(), DACL_SECURITY_INFORMATION, descriptor));
  LocalFree(descriptor);
}

std::wstring ListOf(const fs::path& directory) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  wchar_t* text = nullptr;
  EXPECT_EQ(GetNamedSecurityInfoW(directory.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                  nullptr, nullptr, nullptr, &descriptor),
            DWORD{ERROR_SUCCESS});
  EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(
      descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr));
  std::wstring list(text);
  LocalFree(text);
  LocalFree(descriptor);
  return list;
}

std::string RefusalOf(const fs::path& directory) {
  try {
    CheckDirectory(directory);
  } catch (const SetupError& refusal) {
    return refusal.what();
  }
  return "";
}

class ProtectedDirectory : public testing::Test {
 protected:
  TestSupport::TempDir temp;
  const fs::path directory = fs::absolute(fs::path(temp.File("package")));
};

// An access list with one entry of this type, by which everyone may write.
class ListWithEntry {
 public:
  explicit ListWithEntry(BYTE type) {
    EXPECT_TRUE(InitializeAcl(List(), sizeof buffer, ACL_REVISION_DS));
    alignas(DWORD) std::array<BYTE, SECURITY_MAX_SID_SIZE> everyone{};
    DWORD size = everyone.size();
    EXPECT_TRUE(CreateWellKnownSid(WinWorldSid, nullptr, everyone.data(), &size));
    EXPECT_TRUE(AddAccessAllowedAce(List(), ACL_REVISION_DS, GENERIC_ALL, everyone.data()));
    void* entry = nullptr;
    EXPECT_TRUE(GetAce(List(), 0, &entry));
    static_cast<ACE_HEADER*>(entry)->AceType = type;
  }

  ACL* List() { return reinterpret_cast<ACL*>(buffer.data()); }

 private:
  alignas(DWORD) std::array<BYTE, 256> buffer{};
};

constexpr wchar_t kEveryoneWrites[] = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;CO)(A;OICI;FA;;;WD)";
constexpr wchar_t kEveryoneReads[] = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;CO)(A;OICI;GRGX;;;WD)";

TEST_F(ProtectedDirectory, MissingOneIsAccepted) {
  EXPECT_EQ(RefusalOf(directory), "");
  EXPECT_EQ(RefusalOf(directory / "deeper"), "");
}

TEST_F(ProtectedDirectory, OneThatUsersMayOnlyReadIsAccepted) {
  MakeWithList(directory, kEveryoneReads);
  EXPECT_EQ(RefusalOf(directory), "");
  EXPECT_EQ(RefusalOf(directory / "new"), "");
}

TEST_F(ProtectedDirectory, OneThatUsersMayWriteIsRefused) {
  MakeWithList(directory, kEveryoneWrites);
  EXPECT_NE(RefusalOf(directory).find("may change"), std::string::npos) << RefusalOf(directory);
}

TEST_F(ProtectedDirectory, OneBelowADirectoryThatUsersMayReplaceIsRefused) {
  MakeWithList(directory, kEveryoneWrites);
  MakeWithList(directory / "inner", kEveryoneReads);
  EXPECT_NE(RefusalOf(directory / "inner").find("may change"), std::string::npos);
}

TEST(AccessList, EntriesThatAllowCountWhateverTheirKind) {
  for (const int type : {ACCESS_ALLOWED_ACE_TYPE, ACCESS_ALLOWED_CALLBACK_ACE_TYPE,
                         ACCESS_ALLOWED_OBJECT_ACE_TYPE, ACCESS_ALLOWED_COMPOUND_ACE_TYPE}) {
    EXPECT_NE(StrangerIn(ListWithEntry(static_cast<BYTE>(type)).List(), FILE_WRITE_DATA, false), "") << type;
  }
  for (const int type : {ACCESS_DENIED_ACE_TYPE, ACCESS_DENIED_CALLBACK_ACE_TYPE}) {
    EXPECT_EQ(StrangerIn(ListWithEntry(static_cast<BYTE>(type)).List(), FILE_WRITE_DATA, false), "") << type;
  }
  EXPECT_EQ(StrangerIn(nullptr, FILE_WRITE_DATA, false), "everyone");
}

TEST_F(ProtectedDirectory, RootAndNetworkAndFileAreRefused) {
  EXPECT_NE(RefusalOf("C:\\").find("root of a drive"), std::string::npos) << RefusalOf("C:\\");
  EXPECT_NE(RefusalOf("\\\\server\\share\\package").find("not on a drive"), std::string::npos);
  std::FILE* const file = _wfopen(directory.c_str(), L"w");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(std::fclose(file), 0);
  EXPECT_NE(RefusalOf(directory).find("is a link or a file"), std::string::npos);
}

TEST_F(ProtectedDirectory, NewOneInheritsWhereUsersMayNotWrite) {
  MakeWithList(directory, kEveryoneReads);
  std::vector<fs::path> made;
  MakeDirectories(directory / "a" / "b", made);
  EXPECT_EQ(made, (std::vector<fs::path>{directory / "a", directory / "a" / "b"}));
  EXPECT_EQ(RefusalOf(directory / "a" / "b"), "");
  DeleteMade(made);
  EXPECT_FALSE(fs::exists(directory / "a"));
  EXPECT_TRUE(fs::exists(directory));
}

// A user can do that while the setup program waits for the service to stop.
TEST_F(ProtectedDirectory, OneThatAUserCreatesAfterTheCheckIsRefused) {
  std::vector<fs::path> made;
  ASSERT_EQ(RefusalOf(directory / "package"), "");
  MakeWithList(directory, kEveryoneWrites);
  EXPECT_THROW(MakeProtected(directory / "package", made), SetupError);
  DeleteMade(made);
  EXPECT_FALSE(fs::exists(directory / "package"));
}

TEST_F(ProtectedDirectory, MissingOneIsMadeAndAcceptedAfterwards) {
  MakeWithList(directory, kEveryoneReads);
  std::vector<fs::path> made;
  MakeProtected(directory / "package", made);
  EXPECT_EQ(made, std::vector<fs::path>{directory / "package"});
}

TEST_F(ProtectedDirectory, NewOneIsClosedToUsersWhereTheyMayWriteInItsParent) {
  MakeWithList(directory, kEveryoneWrites);
  std::vector<fs::path> made;
  MakeDirectories(directory / "a", made);
  const std::wstring list = ListOf(directory / "a");
  EXPECT_EQ(list.find(L"FA;;;WD"), std::wstring::npos) << std::string(list.begin(), list.end());
}

}  // namespace

}  // namespace TamLogSetup
