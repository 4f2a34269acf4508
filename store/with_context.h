#pragma once

// Runs one step of an operation and adds the step's own sentence to a failure.
//
//   const LogFileHeader header = WithContext("Failed to read the header", [&] { return view.ReadHeader(); });

#include <utility>

#include "util/exceptions.h"

// Returns the result of step(). A failure of the ExceptionBase family is rethrown as a plain ExceptionBase
// with `sentence` and the failure as its cause; other exceptions pass unchanged.
template <class Step>
decltype(auto) WithContext(const char* sentence, Step&& step) {
  try {
    return std::forward<Step>(step)();
  } catch (const TamLogUtil::Exceptions::ExceptionBase& cause) {
    throw TamLogUtil::Exceptions::ExceptionBase(sentence, &cause);
  }
}
