#include "tamlogctl/read/paged_text.h"

#include "tamlogctl/base/console.h"

namespace TamLogCtl {

PagedText::PagedText(bool withPager) : collects(withPager && StdoutIsTerminal()) {}

bool PagedText::Write(const std::string& text) {
  if (!collects) return WriteLines(text);
  pending += text;
  return true;
}

bool PagedText::Finish() {
  if (pending.empty()) return true;
  Pager pager;
  pager.Begin();
  const bool written = WriteLines(pending);
  const bool paged = pager.Active();
  return pager.End() && (written || paged);
}

}  // namespace TamLogCtl
