// tamlogdrv: the command line of the driver double, for development, demonstration and tests.

#include <fcntl.h>
#include <io.h>

#include <charconv>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "driver/driver_double.h"
#include "driver/message_lines.h"

namespace {

constexpr const char* kUsage =
    "usage: tamlogdrv COMMAND\n"
    "\n"
    "The driver double answers the device \\\\.\\TAMLOG in place of the imaging software's\n"
    "driver. It is for development, demonstration and tests.\n"
    "\n"
    "  install PATH            register and load the driver at PATH (tamlog.sys);\n"
    "                          removes one that is already installed first\n"
    "  remove                  unload the driver and remove its registration\n"
    "  put [--truncate] [FILE] send the messages of FILE (none or -: standard input),\n"
    "                          one a line: time TAB type TAB source TAB text, the time as\n"
    "                          YYYY-MM-DD HH:MM:SS[.mmm]; all of them or, after a fault,\n"
    "                          none; --truncate cuts texts of more than 256 bytes\n"
    "  fail STATUS             fail every fetch with this NTSTATUS (0xC0000001, for one);\n"
    "                          0 ends it\n"
    "  counts                  print the driver's counters\n"
    "  reset                   empty the queue, zero the counters, end a failure\n"
    "  help                    print this text\n"
    "\n"
    "exit code: 0 done, 2 usage or input, 3 driver not loaded, 8 any other failure\n";

constexpr int kExitUsage = 2;
constexpr int kExitNoDriver = 3;
constexpr int kExitFailed = 8;

// The system's codes for "no such device" and "no such registration".
constexpr std::uint32_t kErrorFileNotFound = 2;
constexpr std::uint32_t kErrorServiceDoesNotExist = 1060;

using Arguments = std::vector<std::string_view>;

// Wrong command line or input.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class InputOutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class NoDriverError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

void RequireArguments(const Arguments& arguments, std::size_t count, const char* form) {
  if (arguments.size() != count) throw UsageError(std::string("expected: tamlogdrv ") + form);
}

void Install(const Arguments& arguments) {
  RequireArguments(arguments, 1, "install PATH");
  DriverDouble::Install(std::string(arguments[0]));
  DriverDouble::Start();
  std::cout << "The driver double is installed and loaded.\n";
}

void Remove(const Arguments& arguments) {
  RequireArguments(arguments, 0, "remove");
  if (!DriverDouble::Remove()) throw NoDriverError("the driver double is not installed");
  std::cout << "The driver double is unloaded and removed.\n";
}

std::vector<LogMessageBody> ReadMessages(const std::string& file, LongText longText) {
  try {
    if (file == "-") {
      // Text mode would end the input at a byte 0x1A.
      _setmode(_fileno(stdin), _O_BINARY);
      return ReadMessageLines(std::cin, longText);
    }
    std::ifstream input(file, std::ios::binary);
    if (!input) throw InputOutputError("cannot open \"" + file + "\"");
    return ReadMessageLines(input, longText);
  } catch (const MessageLineError& error) {
    throw UsageError((file == "-" ? "standard input" : file) + ", " + error.what());
  }
}

void Put(const Arguments& arguments) {
  LongText longText = LongText::kRefuse;
  std::string file;
  for (const std::string_view argument : arguments) {
    if (argument == "--truncate") {
      longText = LongText::kTruncate;
    } else if (argument.size() > 1 && argument.front() == '-') {
      throw UsageError("unknown option " + std::string(argument));
    } else if (!file.empty()) {
      throw UsageError("expected: tamlogdrv put [--truncate] [FILE]");
    } else {
      file = argument;
    }
  }
  const std::vector<LogMessageBody> messages = ReadMessages(file.empty() ? "-" : file, longText);
  DriverDouble().Put(messages);
  std::cout << "Handed " << messages.size() << " messages to the driver.\n";
}

std::uint32_t ParseStatus(std::string_view text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view digits = hex ? text.substr(2) : text;
  std::uint32_t status = 0;
  const char* end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, status, hex ? 16 : 10);
  const bool whole = !digits.empty() && result.ec == std::errc() && result.ptr == end;
  if (!whole || (status != 0 && status < 0x80000000U)) {
    throw UsageError("\"" + std::string(text) +
                     "\" is neither 0 nor a failing NTSTATUS (0x80000000 to 0xFFFFFFFF)");
  }
  return status;
}

void Fail(const Arguments& arguments) {
  RequireArguments(arguments, 1, "fail STATUS");
  const std::uint32_t status = ParseStatus(arguments[0]);
  DriverDouble().SetFailure(status);
  std::cout << (status == 0 ? "Fetching works again.\n" : "Every fetch fails from now on.\n");
}

void PrintCounts(const Arguments& arguments) {
  RequireArguments(arguments, 0, "counts");
  const TamLogDriverCounters counters = DriverDouble().Counters();
  std::cout << "queued  " << counters.queued << "\nserved  " << counters.served << "\nfailed  "
            << counters.failed << "\nhandles " << counters.openHandles << "\nopens   " << counters.opens
            << "\nput     " << counters.put << '\n';
}

void Reset(const Arguments& arguments) {
  RequireArguments(arguments, 0, "reset");
  DriverDouble().Reset();
  std::cout << "The driver is empty.\n";
}

void Run(std::string_view command, const Arguments& arguments) {
  if (command == "install") return Install(arguments);
  if (command == "remove") return Remove(arguments);
  if (command == "put") return Put(arguments);
  if (command == "fail") return Fail(arguments);
  if (command == "counts") return PrintCounts(arguments);
  if (command == "reset") return Reset(arguments);
  if (command == "help" || command == "--help" || command == "-h") {
    std::cout << kUsage;
    return;
  }
  throw UsageError("unknown command \"" + std::string(command) + "\"; tamlogdrv help lists them");
}

int Report(const std::exception& error, int exitCode) {
  std::cout.flush();
  std::cerr << "tamlogdrv: " << error.what() << '\n';
  return exitCode;
}

int ReportDriver(const DriverDoubleError& error, std::string_view command) {
  const bool opensDevice = command != "install" && command != "remove";
  if (opensDevice && error.Code() == kErrorFileNotFound) {
    return Report(NoDriverError("the driver is not loaded (tamlogdrv install PATH loads it): " +
                                std::string(error.what())),
                  kExitNoDriver);
  }
  return Report(error, error.Code() == kErrorServiceDoesNotExist ? kExitNoDriver : kExitFailed);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << kUsage;
    return kExitUsage;
  }
  const std::string_view command = argv[1];
  try {
    Run(command, Arguments(argv + 2, argv + argc));
    std::cout.flush();
    if (!std::cout) throw InputOutputError("writing to standard output failed");
    return 0;
  } catch (const UsageError& error) {
    return Report(error, kExitUsage);
  } catch (const NoDriverError& error) {
    return Report(error, kExitNoDriver);
  } catch (const DriverDoubleError& error) {
    return ReportDriver(error, command);
  } catch (const std::exception& error) {
    return Report(error, kExitFailed);
  }
}
