#include "client/message/win32.h"
#include "tamlogctl/commands/run.h"

namespace {

std::string ToUtf8(const wchar_t* text) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 1) return {};
  std::string utf8(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
  utf8.pop_back();  // the zero at the end
  return utf8;
}

}  // namespace

// The wide entry, so that arguments are not bent into the machine's code page.
extern "C" int wmain(int count, wchar_t** arguments) {
  std::vector<std::string> utf8;
  for (int i = 1; i < count; ++i) utf8.push_back(ToUtf8(arguments[i]));
  return TamLogCtl::Run(std::move(utf8));
}
