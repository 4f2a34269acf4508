// Tests the access rights of the objects that the running service shares, as the system itself reports them.

#include <string>

#include "tests/support/wait_until.h"
#include "tests/system/platform.h"
#include "tests/system/system_test.h"
#include "util/win32.h"

// Both require windows.h.
#include <aclapi.h>
#include <sddl.h>

#undef StartService  // would rename the fixture's operation

namespace {

// Returns the access list of an open object in the system's text form.
std::string AccessListOf(HANDLE object, SE_OBJECT_TYPE type = SE_KERNEL_OBJECT) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD error = GetSecurityInfo(object, type, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
                                      nullptr, &descriptor);
  if (error != ERROR_SUCCESS) return "error " + std::to_string(error);
  char* text = nullptr;
  std::string list = "no text";
  if (ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor, SDDL_REVISION_1,
                                                           DACL_SECURITY_INFORMATION, &text, nullptr) != 0) {
    list = text;
    LocalFree(text);
  }
  LocalFree(descriptor);
  return list;
}

class SharedAccess : public SystemTest {
 protected:
  static std::string AccessListOfFile(const std::string& path) {
    const OwnedHandle file =
        Own(CreateFileA(path.c_str(), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                        nullptr, OPEN_EXISTING, 0, nullptr));
    return file == nullptr ? "no file" : AccessListOf(file.get(), SE_FILE_OBJECT);
  }
  // Returns the access list of a key below HKEY_LOCAL_MACHINE, which is created when it is missing.
  static std::string AccessListOfKey(const std::string& path) {
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, READ_CONTROL, nullptr, &key,
                        nullptr) != ERROR_SUCCESS) {
      return "no key";
    }
    std::string list = AccessListOf(key, SE_REGISTRY_KEY);
    RegCloseKey(key);
    return list;
  }
};

}  // namespace

// Each list has a single entry, for Everyone, without inheritance.
TEST_F(SharedAccess, EveryoneMayUseTheThreeEventsAsEventsAndNobodyIsNamedBeside) {
  RunService();
  for (const char* name : {"Global\\TamLogServiceFileHeaderMutex", "Global\\TamLogServiceReadWaitEvent",
                           "Global\\TamLogServiceWriteWaitEvent"}) {
    const OwnedHandle event = Own(OpenEventA(READ_CONTROL, FALSE, name));
    ASSERT_NE(event, nullptr) << name;
    EXPECT_EQ(AccessListOf(event.get()), "D:(A;;0x1f0003;;;WD)") << name;
  }
}

TEST_F(SharedAccess, EveryoneMayReadAndWriteTheMapping) {
  RunService();
  const OwnedHandle mapping = Own(OpenFileMappingA(READ_CONTROL, FALSE, "Global\\TamLogServiceFileMap"));
  ASSERT_NE(mapping, nullptr);
  EXPECT_EQ(AccessListOf(mapping.get()), "D:(A;;CCDCLCSWRPSDRCWDWO;;;WD)");
}

TEST_F(SharedAccess, EveryoneMayReadAndWriteThePipesButNotChangeThem) {
  RunService();
  // The server creates the reply pipe's instance once the request pipe is open, which takes a moment.
  const auto open = [](const char* name, DWORD access) {
    OwnedHandle pipe;
    TestSupport::WaitUntil([&] {
      pipe = Own(CreateFileA(name, access | READ_CONTROL, 0, nullptr, OPEN_EXISTING, SECURITY_SQOS_PRESENT,
                             nullptr));
      return pipe != nullptr;
    });
    return pipe;
  };
  // The order matters: a client of the first pipe alone blocks all others.
  const OwnedHandle requests = open("\\\\.\\pipe\\TamLogServerPipe", GENERIC_WRITE);
  const OwnedHandle replies = open("\\\\.\\pipe\\TamLogServerPipeReply", GENERIC_READ);
  ASSERT_NE(requests, nullptr);
  ASSERT_NE(replies, nullptr);
  EXPECT_EQ(AccessListOf(requests.get()), "D:(A;;0x12019f;;;WD)");
  EXPECT_EQ(AccessListOf(replies.get()), "D:(A;;0x12019f;;;WD)");
}

// These two objects grant only what they inherit from their surroundings.
TEST_F(SharedAccess, TheLogFileIsOpenToWhomAnyFileOfItsDirectoryIsOpen) {
  RunService();
  const std::string other = LogFile() + ".other";
  ASSERT_NE(Own(CreateFileA(other.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr)), nullptr);
  const std::string list = AccessListOfFile(LogFile());
  EXPECT_EQ(list.rfind("D:", 0), 0U) << list;
  EXPECT_EQ(list, AccessListOfFile(other));
  DeleteFileA(other.c_str());
}

TEST_F(SharedAccess, TheSettingsAreOpenToWhomAnyKeyOfTheMachineIsOpen) {
  ServerRegistry::Delete();
  InstallService();
  StartService();
  constexpr char kOther[] = R"(SOFTWARE\TamLogTestOther)";
  const std::string list = AccessListOfKey(R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)");
  EXPECT_EQ(list.rfind("D:", 0), 0U) << list;
  EXPECT_EQ(list, AccessListOfKey(kOther));
  RegDeleteKeyA(HKEY_LOCAL_MACHINE, kOther);
}
