#pragma once

// Runs one step of an operation and says, when it fails, which step it was.
//
//   const LogFileHeader header = WithContext("Failed to read the header", [&] { return view.ReadHeader(); });

#include <utility>

#include "util/exceptions.h"

// The result of `step`. A failure of the ExceptionBase family leaves as a plain ExceptionBase with
// `sentence`, the failure being its cause; everything else passes as it is.
template <class Step>
decltype(auto) WithContext(const char* sentence, Step&& step) {
  try {
    return std::forward<Step>(step)();
  } catch (const TamLogUtil::Exceptions::ExceptionBase& cause) {
    throw TamLogUtil::Exceptions::ExceptionBase(sentence, &cause);
  }
}
