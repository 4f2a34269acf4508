#include <algorithm>
#include <array>
#include <cstdlib>

#include "util/helpers.h"
#include "util/win32.h"

namespace TamLogUtil {
namespace {

constexpr std::size_t kPathBuffer = 1024;
// STATUS_INVALID_CRUNTIME_PARAMETER: what a C run-time that checks its arguments ends a process with.
constexpr UINT kInvalidArgumentExitCode = 0xC0000417U;

}  // namespace

std::string PathBesideExecutable(const std::string& fileName) {
  std::array<char, kPathBuffer> buffer{};
  // A longer path is cut by the system; the directory of any real installation lies inside the buffer. A
  // failure gives length 0 and with it the exception for a path without a backslash.
  const std::size_t length = GetModuleFileNameA(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  return PathBeside(std::string_view(buffer.data(), std::min(length, buffer.size())), fileName);
}

void MoveFileIfPossible(const std::string& from, const std::string& to) {
  MoveFileA(from.c_str(), to.c_str());
}

void CopyBoundedOrEndProcess(char* target, std::size_t size, std::string_view text) {
  if (text.size() >= size) {
    // No exit hooks, no handlers and nothing that a handler further up could catch.
    TerminateProcess(GetCurrentProcess(), kInvalidArgumentExitCode);
    std::abort();
  }
  std::copy(text.begin(), text.end(), target);
  target[text.size()] = '\0';
}

}  // namespace TamLogUtil
