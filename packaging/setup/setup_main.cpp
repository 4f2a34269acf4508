// The program that the setup program and its uninstaller run; see the usage text.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string_view>
#include <vector>

#include "packaging/setup/setup.h"
#include "packaging/setup/setup_error.h"

namespace {

using TamLogSetup::Options;

constexpr char kUsageText[] =
    R"(usage: setup-helper install --payload DIRECTORY --directory DIRECTORY --version VERSION [--no-path] [--log FILE]
       setup-helper remove --directory DIRECTORY [--delete-data] [--log FILE]

Installs, upgrades or removes the Torvane Log Server. For tests, --fail-at N lets the step N fail.
Exit code: 0 done, 1 failed and everything is as before, 2 wrong usage, 3 a newer version is installed, 4 installed from
the MSI, 5 failed and a step could not be undone.
)";

// Returns nothing for wrong usage.
std::optional<Options> Parse(const std::vector<std::wstring_view>& arguments) {
  Options options;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::wstring_view name = arguments[i];
    if (name == L"--no-path") {
      options.addToPath = false;
    } else if (name == L"--delete-data") {
      options.deleteData = true;
    } else if (i + 1 == arguments.size()) {
      return std::nullopt;
    } else {
      const std::wstring value(arguments[++i]);
      if (name == L"--payload") {
        options.payload = value;
      } else if (name == L"--directory") {
        options.directory = value;
      } else if (name == L"--version") {
        options.version = value;
      } else if (name == L"--log") {
        TamLogSetup::OpenLog(value);
      } else if (name == L"--fail-at") {
        options.failAt = static_cast<unsigned>(std::wcstoul(value.c_str(), nullptr, 10));
      } else {
        return std::nullopt;
      }
    }
  }
  if (!options.directory.is_absolute()) return std::nullopt;
  return options;
}

int Wrong() {
  static_cast<void>(std::fputs(kUsageText, stderr));
  return TamLogSetup::kUsage;
}

}  // namespace

extern "C" int wmain(int count, wchar_t** values) {
  try {
    const std::vector<std::wstring_view> arguments(values + (count > 0 ? 1 : 0), values + count);
    if (arguments.empty()) return Wrong();
    const auto options = Parse(arguments);
    if (!options) return Wrong();
    if (arguments[0] == L"install" && !options->payload.empty() && !options->version.empty())
      return Install(*options);
    if (arguments[0] == L"remove") return Remove(*options);
    return Wrong();
  } catch (const std::exception& failure) {
    TamLogSetup::Say(std::string("failed: ") + failure.what());
    return TamLogSetup::kFailed;
  }
}
