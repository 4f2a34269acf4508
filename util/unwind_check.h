#pragma once

// Lets a destructor that may throw hold its exception back while another one unwinds the stack: a second
// exception would end the process.
//
//   class Access {
//    public:
//     ~Access() noexcept(false) {
//       unwindCheck.Finish([&] { Release(); });
//     }
//
//    private:
//     UnwindCheck unwindCheck;
//   };
//
// Compares with the number of exceptions at construction, so an object that lives inside a destructor or a
// handler which itself runs during an unwind still throws to that destructor or handler.

#include <exception>
#include <utility>

namespace TamLogUtil {

// Constructed and destroyed by one thread, or constructed while no exception unwinds the stack.
class UnwindCheck {
 public:
  UnwindCheck() noexcept : exceptionsBefore(std::uncaught_exceptions()) {}
  UnwindCheck(const UnwindCheck&) = delete;
  UnwindCheck& operator=(const UnwindCheck&) = delete;

  // Returns whether the scope of this object is being left because of an exception.
  bool IsUnwinding() const noexcept { return std::uncaught_exceptions() > exceptionsBefore; }

  // Calls step(). What it throws passes through, or is dropped while the stack unwinds.
  template <class Step>
  void Finish(Step&& step) const {
    try {
      std::forward<Step>(step)();
    } catch (...) {
      if (!IsUnwinding()) throw;
    }
  }

 private:
  const int exceptionsBefore;
};

}  // namespace TamLogUtil
