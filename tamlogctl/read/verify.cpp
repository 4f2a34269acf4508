#include "tamlogctl/read/verify.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "client/file/log_file_verify.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/json.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/progress.h"

namespace TamLogCtl {

namespace {

using TamLogClient::FileFinding;
using TamLogClient::FileRule;
using TamLogClient::Status;
using TamLogClient::VerifyReport;

std::string LineOf(const FileFinding& finding) {
  std::string line = IsRemark(finding.rule) ? "  remark  " : "  DAMAGE  ";
  line += RuleName(finding.rule);
  if (finding.slot) line += "  slot " + std::to_string(*finding.slot);
  return line + "  at byte " + std::to_string(finding.offset) + ": " + finding.seen +
         " (allowed: " + finding.allowed + ")\n";
}

std::string Verdict(const VerifyReport& report) {
  if (report.Damage() > 0)
    return "damaged (" + Counted(report.Damage(), "place") +
           "): a server would empty it at its next start; save its messages with: tamlogctl repair";
  if (!report.Accepted())
    return "no damage, but a server would empty it at its next start: it is in order newest first; put it in "
           "order "
           "with: tamlogctl repair";
  return "no damage";
}

std::string TextOf(const std::string& name, const VerifyReport& report) {
  std::string text = name + ": " + Verdict(report) + "\n  " + std::to_string(report.header.messageCount) +
                     " messages, capacity " + std::to_string(report.header.maxMessages) + ", " +
                     Counted(report.slotsThere, "slot") + " in " + Counted(report.size, "byte") + "\n";
  for (const FileFinding& finding : report.findings) text += LineOf(finding);
  const std::uint64_t rest = report.Damage() + report.Remarks() - report.findings.size();
  if (rest > 0)
    text += "  and " + std::to_string(rest) + " more that break the same rules; list them with --all\n";
  return text;
}

JsonObject ObjectOf(const FileFinding& finding) {
  JsonObject json{{"rule", RuleName(finding.rule)}, {"kind", IsRemark(finding.rule) ? "remark" : "damage"}};
  if (finding.slot) json.emplace_back("slot", *finding.slot);
  json.emplace_back("offset", finding.offset);
  json.emplace_back("seen", finding.seen);
  json.emplace_back("allowed", finding.allowed);
  return json;
}

std::string JsonOf(const std::string& name, const VerifyReport& report) {
  JsonObject counts;
  for (std::size_t i = 0; i < TamLogClient::kFileRules; ++i) {
    if (report.count[i] > 0) counts.emplace_back(RuleName(static_cast<FileRule>(i)), report.count[i]);
  }
  JsonArray findings;
  for (const FileFinding& finding : report.findings) findings.emplace_back(ObjectOf(finding));
  const JsonObject json{{"file", name},
                        {"damaged", report.Damage() > 0},
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
  explicit Verify(const VerifyVerbOptions& chosen) : options(chosen) {}

  void File(const std::string& path) {
    auto busy = std::make_optional<Busy>("verifying " + path);
    std::string bytes;
    const auto status = TamLogClient::ReadFileBytes(path, bytes);
    if (status != Status::Ok) {
      busy.reset();
      return Worsen(Refuse(ExitCodeOf(status), FileProblem(path, status)));
    }
    Judge(path, bytes, false, busy);
  }

  void Live() {
    std::string bytes;
    const int code = ReadLiveImage(options.timeoutMs, bytes);
    if (code != kDone) return Worsen(code);
    auto busy = std::make_optional<Busy>("verifying");
    Judge("the running server's log", bytes, true, busy);
  }

  int ExitCode() const { return exitCode; }

 private:
  void Worsen(int code) { exitCode = WorseOf(exitCode, code); }

  void Judge(const std::string& name, const std::string& bytes, bool live, std::optional<Busy>& busy) {
    constexpr std::size_t kListed = 20;
    const std::size_t most = options.all ? std::numeric_limits<std::size_t>::max() : kListed;
    const auto report = VerifyLogFile(TamLogClient::LogFileImage(bytes), {most, live});
    busy.reset();
    if (report.Damage() > 0 || (options.strict && !report.Accepted())) Worsen(kNegative);
    if (options.quiet) return;
    if (!WriteOut(options.json ? JsonOf(name, report) : TextOf(name, report))) Worsen(kOutputFailed);
  }

  const VerifyVerbOptions& options;
  int exitCode = kDone;
};

}  // namespace

int VerifyFiles(const VerifyVerbOptions& options) {
  Verify verify(options);
  for (const std::string& file : options.files) verify.File(file);
  if (options.live) verify.Live();
  return verify.ExitCode();
}

}  // namespace TamLogCtl
