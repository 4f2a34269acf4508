#include "client/file/log_recognition.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "client/file/server_traces.h"
#include "client/file/slot_layout.h"

namespace TamLogClient {

namespace {

using std::string_view_literals::operator""sv;

struct Format {
  std::string_view begin;
  const char* name;
};

// The formats that files near a log have: packed copies, programs, other logs, pictures and documents.
constexpr std::array kFormats{
    Format{"\x1f\x8b"sv, "gzip"},
    Format{"\xfd"
           "7zXZ\0"sv,
           "xz"},
    Format{"BZh"sv, "bzip2"},
    Format{"\x28\xb5\x2f\xfd"sv, "zstd"},
    Format{"\x04\x22\x4d\x18"sv, "lz4"},
    Format{"7z\xbc\xaf\x27\x1c"sv, "7-Zip"},
    Format{"PK\x03\x04"sv, "zip"},
    Format{"Rar!\x1a\x07"sv, "rar"},
    Format{"MSCF"sv, "a cabinet file"},
    Format{"MZ"sv, "a Windows program"},
    Format{"\x7f"
           "ELF"sv,
           "a Linux program"},
    Format{"ElfFile\0"sv, "a Windows event log"},
    Format{"LPKSHHRH"sv, "a systemd journal"},
    Format{"SQLite format 3\0"sv, "a SQLite database"},
    Format{"regf"sv, "a registry hive"},
    Format{"MDMP"sv, "a memory dump"},
    Format{"\x89PNG"sv, "PNG"},
    Format{"\xff\xd8\xff"sv, "JPEG"},
    Format{"%PDF"sv, "PDF"},
    Format{"\xff\xfe"sv, "UTF-16 text"},
    Format{"\xfe\xff"sv, "UTF-16 text"},
};

bool IsText(std::string_view bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char c) {
    return static_cast<unsigned char>(c) >= ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' ||
           c == '\x1b';
  });
}

std::string DescribeBeginning(const LogFileImage& image) {
  constexpr std::size_t kLooked = 512;
  const std::string_view begin = image.View(0, kLooked);
  for (const Format& format : kFormats) {
    if (begin.starts_with(format.begin)) return "it begins like " + std::string(format.name);
  }
  if (IsText(begin)) return "it begins like text";
  if (begin.find_first_not_of('\0') == std::string_view::npos) return "it begins with zeros";
  return "it has neither a log's header nor a message";
}

bool HasHeader(const LogFileImage& image) {
  constexpr std::string_view kNamesBegin = "Global\\TamLog";
  if (image.Size() < sizeof(LogFileHeader)) return false;
  if (image.SizeFits()) return true;
  // Zeros and small numbers are in other files, too; a server counts its changes.
  const LogFileHeader& header = image.Header();
  if (HeaderIsGenuine(header) && header.changeCount > 0 && header.rewriteCount > 0) return true;
  return image.View(kLockNamesOffset, kNamesBegin.size()) == kNamesBegin;
}

}  // namespace

std::string WhyNoLog(const LogFileImage& image) {
  if (image.Size() == 0) return "it is empty";
  if (HasHeader(image) || HoldsAnyMessage(image)) return {};
  return DescribeBeginning(image);
}

}  // namespace TamLogClient
