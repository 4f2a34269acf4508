#include <algorithm>
#include <array>
#include <cstdlib>

#include "util/helpers.h"
#include "util/win32.h"

namespace TamLogUtil {
namespace {

constexpr std::size_t kPathBuffer = 1024;
// STATUS_INVALID_CRUNTIME_PARAMETER: the exit code of a process that a C run-time ends for a bad argument.
constexpr UINT kInvalidArgumentExitCode = 0xC0000417U;

}  // namespace

std::string PathBesideExecutable(const std::string& fileName) {
  std::array<char, kPathBuffer> buffer{};
  // The system truncates a longer path; the directory of any real installation fits. A failure returns length
  // 0, which leads to the exception for a path without a backslash.
  const std::size_t length = GetModuleFileNameA(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  return PathBeside(std::string_view(buffer.data(), std::min(length, buffer.size())), fileName);
}

void MoveFileIfPossible(const std::string& from, const std::string& to) {
  MoveFileA(from.c_str(), to.c_str());
}

void CopyBoundedOrEndProcess(char* target, std::size_t size, std::string_view text) {
  if (text.size() >= size) {
    // Runs no exit hooks, and no handler can catch it.
    TerminateProcess(GetCurrentProcess(), kInvalidArgumentExitCode);
    std::abort();
  }
  std::copy(text.begin(), text.end(), target);
  target[text.size()] = '\0';
}

}  // namespace TamLogUtil
