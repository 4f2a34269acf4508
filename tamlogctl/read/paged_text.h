#pragma once

// Output of verbs that print a report: through the pager on a terminal, else at once.

#include <string>

namespace TamLogCtl {

class PagedText {
 public:
  // `withPager`: the user has not turned the pager off.
  explicit PagedText(bool withPager);

  // Prints `text`; on a terminal only at the end, so that progress and errors are not written over the pager.
  // Returns false when standard output has failed.
  bool Write(const std::string& text);

  // Called once, after the last Write. Returns false as above. A user who leaves the pager early has seen
  // enough.
  bool Finish();

 private:
  bool collects;
  std::string pending;
};

}  // namespace TamLogCtl
