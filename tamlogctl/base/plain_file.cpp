#include "tamlogctl/base/plain_file.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "client/file/file_path.h"
#include "records/log_file_format.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/decompression.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/base/scratch_file.h"
#include "tamlogctl/base/wildcards.h"

namespace TamLogCtl {

namespace {

constexpr std::uint64_t kMostMessages = 1000000;  // that a server lets a log hold
constexpr std::uint64_t kMostBytes = LogFileSize(kMostMessages);

// Returns `head` first, and then what `rest` reads.
ReadBytes After(std::string head, ReadBytes rest) {
  return [head = std::move(head), rest = std::move(rest)](
             char* to, std::size_t most) mutable -> std::optional<std::size_t> {
    if (head.empty()) return rest(to, most);
    const std::size_t taken = head.copy(to, most);
    head.erase(0, taken);
    return taken;
  };
}

// Reads the bytes by which compressed data are recognised; fewer at the end of the data.
std::string ReadHead(const ReadBytes& read) {
  std::array<char, kCompressionMark> bytes{};
  std::size_t size = 0;
  while (size < bytes.size()) {
    const auto got = read(bytes.data() + size, bytes.size() - size);
    if (!got || *got == 0) break;
    size += *got;
  }
  return {bytes.data(), size};
}

std::string NameOf(Compression format) {
  return format == Compression::Gzip ? "gzip" : "xz";
}

// The files that this run has made plain.
class PlainFiles {
 public:
  const PlainFile& Of(const std::string& name) {
    const auto known = files.find(name);
    return known != files.end() ? known->second : files.emplace(name, Make(name)).first->second;
  }

 private:
  PlainFile Make(const std::string& name) {
    const bool onWindows = kProgramExpandsWildcards;
    if (name == "-" || (onWindows && name == "/dev/stdin")) return FromStandardInput();
    if (kProgramExpandsWildcards && HasWildcards(name))
      return {"", Refuse(kNotThere, name + ": no file matches")};
    std::error_code error;
    const auto path = TamLogClient::PathOf(name);
    const bool pipe = std::filesystem::is_fifo(path, error);
    if (!pipe && !std::filesystem::is_regular_file(path, error)) return {name};
    std::ifstream file(path, std::ios::binary);
    const ReadBytes read = [&file](char* to, std::size_t most) -> std::optional<std::size_t> {
      file.read(to, static_cast<std::streamsize>(most));
      if (file.bad()) return std::nullopt;
      return static_cast<std::size_t>(file.gcount());
    };
    if (!file.is_open()) return {name};
    return Unpack(name, pipe ? "" : name, read);
  }

  PlainFile FromStandardInput() {
    if (StdinIsTerminal()) return {"", Refuse(kUsage, "standard input is a terminal; send a log file to it")};
    return Unpack("standard input", "", ReadStandardInput);
  }

  // `plain`: the file itself, for one that is not compressed; empty when it cannot be read again.
  PlainFile Unpack(const std::string& name, const std::string& plain, const ReadBytes& read) {
    auto busy = std::make_optional<Busy>("reading " + name);
    std::string head = ReadHead(read);
    const Compression format = CompressionOf(head);
    if (format == Compression::None && !plain.empty()) return {plain};
    std::string problem;
    auto scratch = ScratchFile::Create(problem);
    if (!scratch) busy.reset();
    if (!scratch) return {"", Refuse(kOutputFailed, "no temporary file for " + name + ": " + problem)};
    std::uint64_t written = 0;
    const auto write = [&](std::string_view piece) {
      written += piece.size();
      return scratch->Write(piece);
    };
    const Decompressed outcome = Decompress(format, After(std::move(head), read), kMostBytes, write);
    busy.reset();
    if (outcome == Decompressed::Corrupt && written == 0 && !plain.empty()) return {plain};
    const int exitCode = Explain(name, format, outcome, *scratch);
    if (!HasOutput(exitCode)) return {"", exitCode};
    scratches.push_back(std::move(scratch));
    return {scratches.back()->Path(), exitCode};
  }

  static int Explain(const std::string& name, Compression format, Decompressed outcome,
                     const ScratchFile& scratch) {
    switch (outcome) {
      case Decompressed::Whole:
        return kDone;
      case Decompressed::Truncated:
        return Refuse(kDamaged,
                      name + ": the " + NameOf(format) + " data end too early; the rest is missing");
      case Decompressed::Corrupt:
        return Refuse(kDamaged, name + ": the " + NameOf(format) +
                                    " data are damaged; what is read from them may be wrong or incomplete");
      case Decompressed::TooLarge:
        return Refuse(kNotALog, name + " is not a log (it has more than " + std::to_string(kMostBytes) +
                                    " bytes" + (format == Compression::None ? "" : " when decompressed") +
                                    ", more than any log)");
      case Decompressed::NotSupported:
        return Refuse(kNotThere, name + ": this program cannot read " + NameOf(format) +
                                     " data; decompress the file first");
      case Decompressed::ReadFailed:
        return Refuse(kOutputFailed, name + ": cannot be read to its end");
      case Decompressed::Stopped:
        break;
    }
    return Refuse(kOutputFailed,
                  "the temporary file for " + name + " cannot be written: " + scratch.Problem());
  }

  std::map<std::string, PlainFile> files;
  std::vector<std::unique_ptr<ScratchFile>> scratches;
};

}  // namespace

const PlainFile& PlainFileOf(const std::string& name) {
  static PlainFiles files;
  return files.Of(name);
}

}  // namespace TamLogCtl
