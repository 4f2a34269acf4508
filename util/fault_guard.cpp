#include "util/fault_guard.h"

#include "util/exceptions.h"
#include "util/win32.h"

// RunUnderFaultGuard is a stack frame in assembly whose unwind information names HandleGuardedFault as its
// language handler. The system calls that handler while it searches the stack for a handler of a structured
// exception; HandleGuardedFault unwinds to FaultGuardResume inside the frame with the code as the result.

extern "C" {
// The label inside RunUnderFaultGuard where execution resumes after a fault, with the code in eax.
extern const unsigned char FaultGuardResume[];

// Marked used: only the assembly names it, which link-time optimisation does not see.
__attribute__((used)) EXCEPTION_DISPOSITION HandleGuardedFault(EXCEPTION_RECORD* record, void* frame,
                                                               CONTEXT* context,
                                                               DISPATCHER_CONTEXT* dispatcher);
}

namespace {

// GCC raises C++ exceptions as structured ones with these codes; they must pass.
constexpr DWORD kGccThrow = 0x20474343;
constexpr DWORD kGccUnwind = 0x21474343;
constexpr DWORD kGccForcedUnwind = 0x22474343;

bool IsCppException(DWORD code) {
  return code == kGccThrow || code == kGccUnwind || code == kGccForcedUnwind;
}

}  // namespace

extern "C" EXCEPTION_DISPOSITION HandleGuardedFault(EXCEPTION_RECORD* record, void* frame,
                                                    CONTEXT* /*context*/, DISPATCHER_CONTEXT* dispatcher) {
  const bool unwinding = (record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND)) != 0;
  const DWORD code = record->ExceptionCode;
  if (unwinding || IsCppException(code)) return ExceptionContinueSearch;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the code travels in the register of a pointer result.
  void* const result = reinterpret_cast<void*>(static_cast<ULONG_PTR>(code));
  RtlUnwindEx(frame, const_cast<unsigned char*>(FaultGuardResume), record, result, dispatcher->ContextRecord,
              dispatcher->HistoryTable);
  return ExceptionContinueSearch;  // not reached
}

// rcx: the function, rdx: its argument. The frame pointer finds the frame again after an unwind.
asm(R"(
    .text
    .globl RunUnderFaultGuard
    .globl FaultGuardResume
    .def RunUnderFaultGuard; .scl 2; .type 32; .endef
    .p2align 4
    .seh_proc RunUnderFaultGuard
RunUnderFaultGuard:
    pushq %rbp
    .seh_pushreg %rbp
    movq %rsp, %rbp
    .seh_setframe %rbp, 0
    subq $32, %rsp
    .seh_stackalloc 32
    .seh_endprologue
    .seh_handler HandleGuardedFault, @except
    movq %rcx, %rax
    movq %rdx, %rcx
    call *%rax
    xorl %eax, %eax
FaultGuardResume:
    nop
    leaq (%rbp), %rsp
    popq %rbp
    ret
    .seh_endproc
)");

namespace TamLogUtil {

void ThrowMappedAccessFailed() {
  throw Exceptions::ExceptionFileMapIO("Failed to access File Map View");
}

}  // namespace TamLogUtil
