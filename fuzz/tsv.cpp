// Fuzzes tsv lines, times and the terms of a selection: each one that can be read is written back unchanged.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "client/format/message_formatter.h"
#include "client/format/tsv_text.h"
#include "client/message/message_body.h"
#include "client/message/time_text.h"
#include "tamlogctl/select/message_selection.h"

namespace {

using TamLogClient::Format;
using TamLogClient::MessageFormatter;

void ReadLine(std::string_view line) {
  std::string problem;
  const auto draft = TamLogClient::ParseTsvLine(line, problem);
  if (!draft) {
    if (problem.empty()) std::abort();
    return;
  }
  LogMessage message{};
  message.body = draft->body;
  if (!TamLogClient::FillTexts(draft->source, draft->text, message.body)) return;
  std::string written;
  MessageFormatter({Format::Tsv}).Append(message, false, written);
  written.pop_back();
  const auto again = TamLogClient::ParseTsvLine(written, problem);
  if (!again || again->source != draft->source || again->text != draft->text) std::abort();
  if (TamLogClient::WordsOf(again->body) != TamLogClient::WordsOf(draft->body)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  ReadLine(text);
  TamLogClient::ParseTime(text);
  TamLogCtl::ParseTypes(text);
  TamLogCtl::ParseSourceTerm(text);
  return 0;
}
