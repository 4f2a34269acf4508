#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <system_error>

#include "client/message/win32.h"
#include "tamlogctl/base/scratch_file.h"
#include "tamlogctl/base/wide_text.h"

namespace TamLogCtl {

namespace {

constexpr DWORD kMostAtOnce = 1U << 20U;

std::string ProblemOf(DWORD error) {
  return std::system_category().message(static_cast<int>(error));
}

// Returns the user's directory for temporary files, with a backslash at its end.
std::wstring Folder() {
  std::array<wchar_t, MAX_PATH + 2> name{};
  const DWORD length = GetTempPathW(static_cast<DWORD>(name.size()), name.data());
  return length < name.size() ? std::wstring(name.data(), length) : std::wstring();
}

// Removes what killed runs have left. The files of running ones are open without shared deletion, so they
// stay.
void RemoveLeftOvers(const std::wstring& folder) {
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW((folder + L"tamlogctl-*.tmp").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    DeleteFileW((folder + found.cFileName).c_str());
  } while (FindNextFileW(search, &found) != FALSE);
  FindClose(search);
}

std::wstring RandomName() {
  std::random_device random;
  std::uint64_t number = (std::uint64_t{random()} << 32U) | random();
  std::wstring digits;
  for (int i = 0; i < 16; ++i, number >>= 4U) digits += L"0123456789abcdef"[number & 0xFU];
  return L"tamlogctl-" + digits + L".tmp";
}

class TemporaryFile : public ScratchFile {
 public:
  TemporaryFile(HANDLE handle, std::wstring wideName) : file(handle), name(std::move(wideName)) {
    path = WideToUtf8(name);
  }
  ~TemporaryFile() override {
    CloseHandle(file);
    DeleteFileW(name.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  bool Write(std::string_view bytes) override {
    while (!bytes.empty()) {
      const auto piece = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), kMostAtOnce));
      DWORD written = 0;
      if (WriteFile(file, bytes.data(), piece, &written, nullptr) == FALSE) {
        problem = ProblemOf(GetLastError());
        return false;
      }
      bytes.remove_prefix(written);
    }
    return true;
  }

 private:
  HANDLE file;
  std::wstring name;
};

}  // namespace

std::unique_ptr<ScratchFile> ScratchFile::Create(std::string& failure) {
  const std::wstring folder = Folder();
  RemoveLeftOvers(folder);
  // Opened for writing by this process only, and never an existing file: the directory may be one of many
  // users.
  const std::wstring name = folder + RandomName();
  const HANDLE file = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY, nullptr);
  if (file != INVALID_HANDLE_VALUE) return std::make_unique<TemporaryFile>(file, name);
  failure = ProblemOf(GetLastError());
  return nullptr;
}

std::optional<std::size_t> ReadStandardInput(char* to, std::size_t most) {
  DWORD got = 0;
  const auto piece = static_cast<DWORD>(std::min<std::size_t>(most, kMostAtOnce));
  if (ReadFile(GetStdHandle(STD_INPUT_HANDLE), to, piece, &got, nullptr) != FALSE) return got;
  if (GetLastError() == ERROR_BROKEN_PIPE) return 0;  // the other end has closed the pipe
  return std::nullopt;
}

}  // namespace TamLogCtl
