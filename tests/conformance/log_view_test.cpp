// What a reader in plain C meets: mapped bytes that the disk no longer has, whose faults it cannot catch, and
// a mapping that no server has made.

#include "conformance/log_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/system/platform.h"
#include "util/win32.h"

namespace {

constexpr std::size_t kPage = 4096;

// A mapped file of four pages, all 'x'.
class MappedFile : public testing::Test {
 protected:
  void SetUp() override {
    const HANDLE file = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_NEW, 0, nullptr);
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(file, std::string(4 * kPage, 'x').data(), 4 * kPage, &written, nullptr));
    mapping = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    CloseHandle(file);
    bytes = static_cast<const char*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
    ASSERT_NE(bytes, nullptr);
  }
  void TearDown() override {
    UnmapViewOfFile(bytes);
    CloseHandle(mapping);
  }

  // Makes all but the first page unreadable. Windows does not shorten a mapped file, and no test can make a
  // disk fail: there the pages lose their access. Under Wine the host shortens the file, and touching the
  // pages then fails in the processor, as when a disk does not deliver them.
  void LosePages() const {
    if (!IsWine()) {
      DWORD before = 0;
      ASSERT_TRUE(VirtualProtect(const_cast<char*>(bytes) + kPage, 3 * kPage, PAGE_NOACCESS, &before));
      return;
    }
    std::string command = "Z:\\usr\\bin\\truncate -s 4096 " + UnixPath();
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    ASSERT_TRUE(CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &process));
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    ASSERT_TRUE(
        Eventually(std::chrono::seconds(20), [this] { return std::filesystem::file_size(path) == kPage; }));
  }

  std::string UnixPath() const {
    using Convert = char*(CDECL*)(const WCHAR*);
    const auto convert = reinterpret_cast<Convert>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name")));
    char* const name = convert(std::filesystem::path(path).wstring().c_str());
    std::string result = name;
    HeapFree(GetProcessHeap(), 0, name);
    return result;
  }

  TestSupport::TempDir directory;
  std::string path = directory.File("mapped.dat");
  HANDLE mapping = nullptr;
  const char* bytes = nullptr;
};

TEST_F(MappedFile, IsCopied) {
  std::vector<char> copy(4 * kPage);
  EXPECT_TRUE(CopyMapped(copy.data(), bytes, copy.size()));
  EXPECT_EQ(static_cast<std::size_t>(std::count(copy.begin(), copy.end(), 'x')), copy.size());
}

TEST_F(MappedFile, FailsToBeCopiedWhereTheDiskHasLostIt) {
  LosePages();
  std::vector<char> copy(4 * kPage);
  EXPECT_TRUE(CopyMapped(copy.data(), bytes, kPage));
  EXPECT_FALSE(CopyMapped(copy.data(), bytes, 2 * kPage));      // begins well
  EXPECT_FALSE(CopyMapped(copy.data(), bytes + 2 * kPage, 8));  // all of it is lost
  SIZE_T copied = 0;
  EXPECT_FALSE(ReadProcessMemory(GetCurrentProcess(), bytes, copy.data(), 2 * kPage, &copied));
  EXPECT_EQ(GetLastError(), IsWine() ? ERROR_NOACCESS : ERROR_PARTIAL_COPY);
}

TEST_F(MappedFile, IsNoRunningLogWhereTheDiskHasLostIt) {
  LosePages();
  LogView view{};
  view.bytes = reinterpret_cast<const unsigned char*>(bytes) + kPage;
  EXPECT_FALSE(IsRunning(&view));
}

// Any user may create it before the server, and it costs that user no memory.
TEST(SharedLog, LargerThanAServerMakesOneIsRefused) {
  constexpr DWORD kMost = 1000000;
  const HANDLE readWait = CreateEventA(nullptr, TRUE, TRUE, TAMLOG_READ_WAIT_EVENT);
  ASSERT_NE(readWait, nullptr);
  for (const DWORD slots : {kMost, kMost + 100}) {
    const DWORD size = TAMLOG_SLOTS_OFFSET + slots * TAMLOG_SLOT_SIZE;
    const HANDLE mapping =
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, TAMLOG_FILE_MAP);
    auto* const header =
        static_cast<unsigned char*>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, TAMLOG_SLOTS_OFFSET));
    ASSERT_NE(header, nullptr);
    header[TAMLOG_SERVER_RUNNING] = 1;
    LogView view;
    EXPECT_EQ(OpenLog(&view), slots == kMost ? 1 : 0) << slots;
    CloseLog(&view);
    UnmapViewOfFile(header);
    CloseHandle(mapping);
  }
  CloseHandle(readWait);
}

}  // namespace
