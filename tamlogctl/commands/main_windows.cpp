#include "tamlogctl/base/library_search.h"
#include "tamlogctl/base/wide_text.h"
#include "tamlogctl/commands/run.h"

// The wide entry point, so that the arguments are not converted to the machine's code page.
extern "C" int wmain(int count, wchar_t** arguments) {
  TamLogCtl::LoadLibrariesOfTheSystemOnly();
  std::vector<std::string> utf8;
  for (int i = 1; i < count; ++i) utf8.push_back(TamLogCtl::WideToUtf8(arguments[i]));
  return TamLogCtl::Run(std::move(utf8));
}
