#include <string>

#include "util/exceptions.h"
#include "util/helpers.h"
#include "util/win32.h"

namespace TamLogUtil::Exceptions {
namespace {

constexpr DWORD kFormatFlags =
    FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
constexpr DWORD kNeutralLanguage = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);

// The text as the system returns it, line break included; empty when it has none for `code`.
std::string SystemText(std::uint32_t code) {
  char* buffer = nullptr;
  const DWORD length = FormatMessageA(kFormatFlags, nullptr, code, kNeutralLanguage,
                                      reinterpret_cast<char*>(&buffer), 0, nullptr);
  if (length == 0 || buffer == nullptr) return {};
  const std::unique_ptr<char, decltype(&LocalFree)> owner(buffer, &LocalFree);
  return {buffer, length};
}

}  // namespace

// The last error is an argument of the private constructor, so it is read before the first allocation.
ExceptionWindows::ExceptionWindows(std::string_view text, const ExceptionBase* cause, std::uint32_t code)
    : ExceptionWindows(code != 0 ? code : GetLastError(), text, cause) {}

ExceptionWindows::ExceptionWindows(std::uint32_t knownCode, std::string_view text, const ExceptionBase* cause)
    : ExceptionBase(std::string(text), cause), errorCode(knownCode) {}

std::string ExceptionWindows::GetMessage() const {
  return Message() + " - Error code : " + ToString(std::uint64_t{errorCode}) + " - " + SystemText(errorCode);
}

std::unique_ptr<ExceptionBase> ExceptionWindows::Clone() const {
  return std::make_unique<ExceptionWindows>(*this);
}

}  // namespace TamLogUtil::Exceptions
