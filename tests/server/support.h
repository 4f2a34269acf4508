#pragma once

// Shared by the tests of the server: the registry seen from outside, a folder for files, the ring of a log
// file, bounded waiting. None of it uses the server's own code.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "records/log_file_format.h"
#include "tests/support/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"

using TestSupport::ReadBytes;
using TestSupport::TempDir;
using TestSupport::WaitUntil;
using namespace std::chrono_literals;

// The server's key and everything in it, below HKEY_LOCAL_MACHINE.
namespace registry {

inline constexpr char kParentKey[] = R"(SOFTWARE\Brenmark VORTA)";
inline constexpr char kMainKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
inline constexpr char kFiltersKey[] = R"(SOFTWARE\Brenmark VORTA\Torvane Log Server\Filters)";

void DeleteAll();
// Creates a parent in which no permanent key can be created: RegCreateKeyEx then fails with 1021.
void ReplaceByVolatileParent();
bool KeyExists(const char* key);

struct Value {
  std::uint32_t type;
  std::string data;  // as stored, the zero of a text included
};
std::optional<Value> Read(const char* key, const std::string& name);
// Creates the key when it is missing.
void Write(const char* key, const std::string& name, std::uint32_t type, const std::string& data);

std::optional<std::uint32_t> Number(const std::string& name);  // of the main key, REG_DWORD only
std::optional<std::string> Text(const std::string& name);      // of the main key, REG_SZ only
void SetNumber(const std::string& name, std::uint32_t value);
void SetText(const std::string& name, const std::string& value);

void AddFilterValue(const std::string& name, const std::string& data);
std::map<std::string, std::string> FilterValues();  // name to data

}  // namespace registry

bool FileExists(const std::string& path);

std::optional<LogFileHeader> ReadHeader(const std::string& logFile);
// The texts of the ring's messages, oldest first.
std::vector<std::string> RingTexts(const std::string& logFile);

LogMessageBody MakeMessage(const std::string& text, const std::string& source = "source",
                           std::uint32_t type = 0, std::int16_t minute = 0);

std::string ExecutableFolder();
// The system's text for an error code, as part of a failure's text.
std::string SystemText(std::uint32_t code);
// ` - Error code : `, the code, ` - `, the system's text.
std::string ErrorSuffix(std::uint32_t code);

std::uint64_t NowMs();

// The number of occurrences of `part` in `text`.
int Occurrences(const std::string& text, const std::string& part);
// Replaces CR LF by LF.
std::string WithoutCarriageReturns(std::string text);
