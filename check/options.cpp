#include "check/options.h"

#include <algorithm>

namespace TamLogCheck {

const char* HelpText() {
  return R"(usage: tamlogcheck [OPTION...] [CHECK...]

Checks on this machine what the Torvane Log Server promises of Windows, and writes a report to mail to the maker.
Run it in a console with administrator rights; without them the checks of the service are left out. It takes about
three minutes.

  tamlogcheck                  every check
  tamlogcheck service. pipe.   the checks whose names begin so
  tamlogcheck --list           names and promises of all checks; nothing is tried

Where the service is not installed, the program installs a copy of TamLogServer.exe, and removes it at the end.
Where it is installed, the checks use it, with a log file of their own: the log of the machine is not opened. It
misses the messages of these minutes. So a service that runs, or whose log has messages, is used only with
--interrupt. Settings and service are restored at the end, also after Ctrl-C.

  --interrupt         use the installed service although it is in use
  --stand-in-device   the server needs the driver's device \\.\TAMLOG: where it is missing, provide an empty
                      device of that name during the checks
  --quick             leave out the checks that take longer than half a minute
  --server FILE       install this server; otherwise TamLogServer.exe in this program's directory
  --folder DIRECTORY  a new directory for everything that the checks write; otherwise in the temporary directory
  --report FILE       the report; otherwise tamlogcheck-COMPUTER-TIME.txt in the current directory
  --restore DIRECTORY restore settings and service after a run that was ended by force; it has left DIRECTORY
  --list              list the checks
  --help              this text

The report begins with what differs. Its second part is the same for programs, one JSON object a line.

Exit code: 0 every check that was tried holds; 1 a check differs; 2 wrong usage; 3 refused, nothing was changed;
4 what was tried holds, but the server could not be run (the report says why); 5 something could not be restored
(the report says what).
)";
}

std::string ParseOptions(const std::vector<std::string>& arguments, Options& options) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    std::string* text = nullptr;
    if (word == "--help" || word == "-h" || word == "/?") {
      options.help = true;
    } else if (word == "--list") {
      options.list = true;
    } else if (word == "--interrupt") {
      options.interrupt = true;
    } else if (word == "--stand-in-device") {
      options.standInDevice = true;
    } else if (word == "--quick") {
      options.quick = true;
    } else if (word == "--server") {
      text = &options.server;
    } else if (word == "--folder") {
      text = &options.folder;
    } else if (word == "--report") {
      text = &options.report;
    } else if (word == "--restore") {
      text = &options.restore;
    } else if (word.empty() || word[0] == '-') {
      return "unexpected argument \"" + word + "\"";
    } else {
      options.only.push_back(word);
    }
    if (text == nullptr) continue;
    if (i + 1 == arguments.size() || arguments[i + 1].empty()) return word + " needs a value";
    *text = arguments[++i];
  }
  return "";
}

bool IsChosen(const Options& options, const std::string& check) {
  return options.only.empty() || std::ranges::any_of(options.only, [&check](const std::string& begin) {
           return check.starts_with(begin);
         });
}

}  // namespace TamLogCheck
