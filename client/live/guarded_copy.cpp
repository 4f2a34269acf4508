#include "client/live/guarded_copy.h"

#include "client/message/win32.h"

// GCC has no structured exception handling for C++ code. So the copy is a frame of its own with its own
// language handler: a fault inside it unwinds to the resume label, which returns the exception's code. The
// frame holds no object whose destructor could be skipped.

extern "C" {
extern const unsigned char TamLogClientCopyResume[];

// Referenced by the frame below only, which the compiler does not see.
__attribute__((used)) EXCEPTION_DISPOSITION TamLogClientCopyHandler(EXCEPTION_RECORD* record, void* frame,
                                                                    CONTEXT* /*context*/,
                                                                    DISPATCHER_CONTEXT* dispatcher) {
  constexpr DWORD kUnwinding = EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND;
  if ((record->ExceptionFlags & kUnwinding) != 0) return ExceptionContinueSearch;
  const auto code = static_cast<ULONG_PTR>(record->ExceptionCode);
  // RtlUnwindEx takes its return value as a pointer.
  void* const result = reinterpret_cast<void*>(code);  // NOLINT(performance-no-int-to-ptr)
  RtlUnwindEx(frame, const_cast<unsigned char*>(TamLogClientCopyResume), record, result,
              dispatcher->ContextRecord, dispatcher->HistoryTable);
  return ExceptionContinueSearch;
}
}

// rdi and rsi belong to the caller: they are saved, and restored on both ways out.
asm(R"(
    .text
    .globl TamLogClientGuardedCopy
    .globl TamLogClientCopyResume
    .def TamLogClientGuardedCopy; .scl 2; .type 32; .endef
    .p2align 4
    .seh_proc TamLogClientGuardedCopy
TamLogClientGuardedCopy:
    pushq %rbp
    .seh_pushreg %rbp
    pushq %rdi
    .seh_pushreg %rdi
    pushq %rsi
    .seh_pushreg %rsi
    movq %rsp, %rbp
    .seh_setframe %rbp, 0
    subq $32, %rsp
    .seh_stackalloc 32
    .seh_endprologue
    .seh_handler TamLogClientCopyHandler, @except
    movq %rcx, %rdi
    movq %rdx, %rsi
    testq %r9, %r9
    jnz 1f
    movl $8, %r9d
    cmpq %r9, %r8
    je 1f
    movq %r8, %rcx
    cld
    rep movsb
    jmp 2f
1:
    shrq $3, %r8
    jz 2f
3:
    movq (%rsi), %rax
    movq %rax, (%rdi)
    addq %r9, %rsi
    addq $8, %rdi
    decq %r8
    jnz 3b
2:
    xorl %eax, %eax
TamLogClientCopyResume:
    nop
    leaq (%rbp), %rsp
    popq %rsi
    popq %rdi
    popq %rbp
    ret
    .seh_endproc
)");
