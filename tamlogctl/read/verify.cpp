#include "tamlogctl/read/verify.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "client/file/file_bytes.h"
#include "client/file/log_file_verify.h"
#include "client/file/log_recognition.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/json.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/plain_file.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/read/paged_text.h"

namespace TamLogCtl {

namespace {

using TamLogClient::FileFinding;
using TamLogClient::FileRule;
using TamLogClient::LogFileImage;
using TamLogClient::Status;
using TamLogClient::VerifyReport;

std::string LineOf(const FileFinding& finding) {
  std::string line = IsRemark(finding.rule) ? "  remark  " : "  DAMAGE  ";
  line += RuleName(finding.rule);
  if (finding.slot) line += "  slot " + std::to_string(*finding.slot);
  return line + "  at byte " + std::to_string(finding.offset) + ": " + finding.seen +
         " (allowed: " + finding.allowed + ")\n";
}

// `unpacked` is false when the file is compressed and its compressed data are damaged.
std::string Verdict(const VerifyReport& report, bool unpacked) {
  const std::string places = "damaged (" + Counted(report.Damage(), "place") + "): ";
  constexpr const char* kRepair = "; save its messages with: tamlogctl repair";
  if (report.Damage() > 0 && report.Accepted())
    return places + "a server would keep the messages that its slots hold" + kRepair;
  if (report.Damage() > 0) return places + "a server would empty it at its next start" + kRepair;
  if (!unpacked) return "its compressed data are damaged; what was read from them breaks no rule";
  if (!report.Accepted())
    return "no damage, but a server would empty it at its next start: it is in order newest first; put it in "
           "order "
           "with: tamlogctl repair";
  return "no damage";
}

// Returns the findings of one rule in one line: the first of them, and how many there are.
std::string CountedLine(const FileFinding& first, std::uint64_t count) {
  std::string line = LineOf(first);
  if (count == 1) return line;
  line.pop_back();
  return line + ", and " + std::to_string(count - 1) + " more\n";
}

// Damage first: a healthy log can have thousands of remarks.
std::string ListOf(const VerifyReport& report, bool all) {
  std::string damage;
  std::string remarks;
  std::array<bool, TamLogClient::kFileRules> met{};
  for (const FileFinding& finding : report.findings) {
    if (!IsRemark(finding.rule)) {
      damage += LineOf(finding);
      continue;
    }
    const auto rule = static_cast<std::size_t>(finding.rule);
    if (all) {
      remarks += LineOf(finding);
    } else if (!met[rule]) {
      remarks += CountedLine(finding, report.count[rule]);
    }
    met[rule] = true;
  }
  const auto listed = static_cast<std::uint64_t>(
      std::count_if(report.findings.begin(), report.findings.end(),
                    [](const FileFinding& finding) { return !IsRemark(finding.rule); }));
  const std::uint64_t rest = report.Damage() - listed;
  if (rest > 0)
    damage += "  and " + std::to_string(rest) + " more that break the same rules; list them with --all\n";
  if (!all && report.Remarks() > static_cast<std::uint64_t>(std::count(met.begin(), met.end(), true)))
    remarks += "  list every remark with --all\n";
  return damage + remarks;
}

std::string TextOf(const std::string& name, const VerifyReport& report, bool unpacked, bool all) {
  return Shown(ReadName(name)) + ": " + Verdict(report, unpacked) + "\n  " +
         std::to_string(report.header.messageCount) + " messages, capacity " +
         std::to_string(report.header.maxMessages) + ", " + Counted(report.slotsThere, "slot") + " in " +
         Counted(report.size, "byte") + "\n" + ListOf(report, all);
}

JsonObject ObjectOf(const FileFinding& finding) {
  JsonObject json{{"rule", RuleName(finding.rule)}, {"kind", IsRemark(finding.rule) ? "remark" : "damage"}};
  if (finding.slot) json.emplace_back("slot", *finding.slot);
  json.emplace_back("offset", finding.offset);
  json.emplace_back("seen", finding.seen);
  json.emplace_back("allowed", finding.allowed);
  return json;
}

std::string JsonOf(const std::string& name, const VerifyReport& report, bool unpacked) {
  JsonObject counts;
  for (std::size_t i = 0; i < TamLogClient::kFileRules; ++i) {
    if (report.count[i] > 0) counts.emplace_back(RuleName(static_cast<FileRule>(i)), report.count[i]);
  }
  JsonArray findings;  // damage first
  for (const bool remarks : {false, true}) {
    for (const FileFinding& finding : report.findings) {
      if (IsRemark(finding.rule) == remarks) findings.emplace_back(ObjectOf(finding));
    }
  }
  const JsonObject json{{"file", name},
                        {"damaged", report.Damage() > 0 || !unpacked},
                        {"accepted", report.Accepted()},
                        {"damage", report.Damage()},
                        {"remarks", report.Remarks()},
                        {"messages", report.header.messageCount},
                        {"capacity", report.header.maxMessages},
                        {"slots", report.slotsThere},
                        {"bytes", report.size},
                        {"counts", std::move(counts)},
                        {"findings", std::move(findings)}};
  return WriteJson(json) + "\n";
}

class Verify {
 public:
  explicit Verify(const VerifyVerbOptions& chosen) : options(chosen), output(!chosen.noPager) {}

  void File(const std::string& path) {
    const PlainFile& file = PlainFileOf(path);
    Worsen(file.exitCode);
    if (!file.Readable()) return;
    auto busy = std::make_optional<Busy>("verifying " + path);
    TamLogClient::FileBytes bytes;
    if (const auto status = bytes.Open(file.path); status != Status::Ok) return Fail(path, status, "", busy);
    const LogFileImage image(bytes);
    const std::string why = WhyNoLog(image);
    if (!why.empty()) return Fail(path, Status::NotALog, why, busy);
    unpacked = file.exitCode == kDone;
    Judge(path, image, false, busy);
  }

  void Live() {
    std::string bytes;
    const int code = ReadLiveImage(options.timeoutMs, bytes);
    if (code != kDone) return Worsen(code);
    auto busy = std::make_optional<Busy>("verifying");
    unpacked = true;
    Judge("the running server's log", LogFileImage(bytes), true, busy);
  }

  // Returns the exit code of all files. Called after the last one.
  int Finish() {
    if (!output.Finish()) Worsen(kOutputFailed);
    return exitCode;
  }

 private:
  void Worsen(int code) { exitCode = WorseOf(exitCode, code); }

  void Fail(const std::string& path, const TamLogClient::FileStatus& status, const std::string& remark,
            std::optional<Busy>& busy) {
    busy.reset();
    Worsen(Refuse(ExitCodeOf(status), FileProblem(path, status, remark)));
  }

  void Judge(const std::string& name, const LogFileImage& image, bool live, std::optional<Busy>& busy) {
    constexpr std::size_t kListed = 20;
    const std::size_t most = options.all ? std::numeric_limits<std::size_t>::max() : kListed;
    const auto report = VerifyLogFile(image, {.most = most, .live = live});
    busy.reset();
    if (report.Damage() > 0 || (options.strict && !report.Accepted())) Worsen(kNegative);
    if (options.quiet) return;
    if (!output.Write(options.json ? JsonOf(name, report, unpacked)
                                   : TextOf(name, report, unpacked, options.all)))
      Worsen(kOutputFailed);
  }

  const VerifyVerbOptions& options;
  PagedText output;
  bool unpacked = true;  // the present file's compressed data are whole, or it is not compressed
  int exitCode = kDone;
};

}  // namespace

int VerifyFiles(const VerifyVerbOptions& options) {
  Verify verify(options);
  for (const std::string& file : options.files) verify.File(file);
  if (options.live) verify.Live();
  return verify.Finish();
}

}  // namespace TamLogCtl
