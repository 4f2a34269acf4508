#include "util/fault_guard.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/expect_failure.h"
#include "util/exceptions.h"
#include "util/win32.h"

namespace TamLogUtil {
namespace {

using Exceptions::ExceptionBase;
using Exceptions::ExceptionFileMapIO;
using TestSupport::ExpectFailure;

constexpr std::size_t kPage = 4096;
constexpr std::uint32_t kAccessViolation = 0xC0000005U;

// Memory whose every access is a genuine fault while it is closed.
class Page {
 public:
  Page()
      : memory(static_cast<char*>(VirtualAlloc(nullptr, kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE))) {}
  ~Page() { VirtualFree(memory, 0, MEM_RELEASE); }
  Page(const Page&) = delete;
  Page& operator=(const Page&) = delete;

  void Shut() { Protect(PAGE_NOACCESS); }
  void Open() { Protect(PAGE_READWRITE); }
  void MakeReadOnly() { Protect(PAGE_READONLY); }
  volatile char* Bytes() const { return memory; }
  char* Raw() const { return memory; }

 private:
  void Protect(DWORD protection) {
    DWORD before = 0;
    ASSERT_NE(VirtualProtect(memory, kPage, protection, &before), 0);
  }

  char* memory;
};

// Turns a set number of faults on one page into in-page errors, then opens the page.
class InPageErrors {
 public:
  InPageErrors(Page& faulty, int count) {
    page = &faulty;
    left = count;
    page->Shut();
    handler = AddVectoredExceptionHandler(1, &Translate);
  }
  ~InPageErrors() {
    RemoveVectoredExceptionHandler(handler);
    page->Open();
  }
  InPageErrors(const InPageErrors&) = delete;
  InPageErrors& operator=(const InPageErrors&) = delete;

 private:
  static LONG WINAPI Translate(EXCEPTION_POINTERS* pointers) {
    EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    const auto address = record.ExceptionInformation[1];
    const auto begin = reinterpret_cast<ULONG_PTR>(page->Raw());
    if (record.ExceptionCode != kAccessViolation || address < begin || address >= begin + kPage) {
      return EXCEPTION_CONTINUE_SEARCH;
    }
    if (--left == 0) page->Open();
    record.ExceptionCode = kInPageError;
    return EXCEPTION_CONTINUE_SEARCH;
  }

  static inline Page* page = nullptr;
  static inline int left = 0;
  void* handler;
};

// The code with which `block` leaves AccessMappedView as an integer; 0 when it does not.
template <class Block>
std::uint32_t CodeOf(Block block) {
  try {
    AccessMappedView(block);
  } catch (std::uint32_t code) {
    return code;
  }
  return 0;
}

class AliveCounter {
 public:
  explicit AliveCounter(int& aliveCount) : alive(aliveCount) { ++alive; }
  ~AliveCounter() { --alive; }
  AliveCounter(const AliveCounter&) = delete;
  AliveCounter& operator=(const AliveCounter&) = delete;

 private:
  int& alive;
};

TEST(AccessMappedView, RunsTheBlockOnceWhenNothingFails) {
  int runs = 0;
  AccessMappedView([&] { ++runs; });
  EXPECT_EQ(runs, 1);
}

TEST(AccessMappedView, GivesUpAfterTenInPageErrors) {
  int attempts = 0;
  ExpectFailure<ExceptionFileMapIO>(
      [&] {
        AccessMappedView([&] {
          ++attempts;
          RaiseException(kInPageError, 0, 0, nullptr);
        });
      },
      "Failed to access File Map View");
  EXPECT_EQ(attempts, 10);
}

TEST(AccessMappedView, SucceedsAtTheTenthAttempt) {
  int attempts = 0;
  AccessMappedView([&] {
    if (++attempts < 10) RaiseException(kInPageError, 0, 0, nullptr);
  });
  EXPECT_EQ(attempts, 10);
}

TEST(AccessMappedView, RetriesWhileAPageCannotBeRead) {
  for (const int errors : {1, 5, 9}) {
    Page page;
    page.Bytes()[7] = 'x';
    int attempts = 0;
    char read = 0;
    {
      const InPageErrors injected(page, errors);
      AccessMappedView([&] {
        ++attempts;
        read = page.Bytes()[7];
      });
    }
    EXPECT_EQ(attempts, errors + 1);
    EXPECT_EQ(read, 'x');
  }
}

TEST(AccessMappedView, GivesUpOnAPageThatStaysUnreadable) {
  for (const int errors : {10, 12}) {
    Page page;
    int attempts = 0;
    const InPageErrors injected(page, errors);
    ExpectFailure<ExceptionFileMapIO>(
        [&] {
          AccessMappedView([&] {
            ++attempts;
            page.Bytes()[0] = 1;
          });
        },
        "Failed to access File Map View");
    EXPECT_EQ(attempts, 10);
  }
}

TEST(AccessMappedView, RetriesACopyOutOfAPage) {
  Page page;
  std::memset(page.Raw(), 'y', kPage);
  std::string copy(kPage, ' ');
  {
    const InPageErrors injected(page, 3);
    AccessMappedView([&] { std::memcpy(copy.data(), page.Raw(), kPage); });
  }
  EXPECT_EQ(copy, std::string(kPage, 'y'));
}

TEST(AccessMappedView, AnyOtherFaultLeavesAsItsCodeAfterOneAttempt) {
  Page page;
  page.Shut();
  int attempts = 0;
  char sink = 0;
  const std::uint32_t code = CodeOf([&] {
    ++attempts;
    sink = page.Bytes()[0];
  });
  EXPECT_EQ(code, kAccessViolation);
  EXPECT_EQ(attempts, 1);
  EXPECT_EQ(sink, 0);
}

TEST(AccessMappedView, WritingAReadOnlyPageLeavesAsItsCode) {
  Page page;
  page.MakeReadOnly();
  EXPECT_EQ(CodeOf([&] { page.Bytes()[0] = 1; }), kAccessViolation);
}

TEST(AccessMappedView, AFaultInACopyLeavesAsItsCode) {
  Page page;
  page.Shut();
  std::vector<char> other(kPage);
  EXPECT_EQ(CodeOf([&] { std::memcpy(other.data(), page.Raw(), kPage); }), kAccessViolation);
  EXPECT_EQ(CodeOf([&] { std::memcpy(page.Raw(), other.data(), kPage); }), kAccessViolation);
}

TEST(AccessMappedView, RaisedCodesLeaveUnchanged) {
  for (const std::uint32_t raised : {0xC0000008U, 0xE0000001U, 0xC0000094U, 1U}) {
    EXPECT_EQ(CodeOf([&] { RaiseException(raised, 0, 0, nullptr); }), raised);
  }
}

TEST(AccessMappedView, AnExceptionThatMustNotContinueLeavesAsItsCode) {
  EXPECT_EQ(CodeOf([] { RaiseException(0xE0000002U, EXCEPTION_NONCONTINUABLE, 0, nullptr); }), 0xE0000002U);
}

TEST(AccessMappedView, TheCodeIsNoExceptionOfTheFamily) {
  bool integer = false;
  try {
    AccessMappedView([] { RaiseException(0xE0000001U, 0, 0, nullptr); });
  } catch (const std::exception&) {
    ADD_FAILURE();
  } catch (std::uint32_t) {
    integer = true;
  }
  EXPECT_TRUE(integer);
}

TEST(AccessMappedView, TheOuterGuardWorksAgainAfterAnInnerOneRethrew) {
  int inner = 0;
  int outer = 0;
  const std::uint32_t code = CodeOf([&] {
    ++outer;
    try {
      AccessMappedView([&] {
        ++inner;
        RaiseException(0xE0000001U, 0, 0, nullptr);
      });
    } catch (std::uint32_t) {
      RaiseException(0xE0000002U, 0, 0, nullptr);
    }
  });
  EXPECT_EQ(code, 0xE0000002U);
  EXPECT_EQ(inner, 1);
  EXPECT_EQ(outer, 1);
}

TEST(AccessMappedView, ACodeOfAnInnerGuardPassesTheOuterOne) {
  EXPECT_EQ(CodeOf([] { AccessMappedView([] { RaiseException(0xE0000003U, 0, 0, nullptr); }); }),
            0xE0000003U);
}

TEST(AccessMappedView, AnInnerFailureDoesNotMakeTheOuterGuardTryAgain) {
  int inner = 0;
  int outer = 0;
  EXPECT_THROW(AccessMappedView([&] {
                 ++outer;
                 AccessMappedView([&] {
                   ++inner;
                   RaiseException(kInPageError, 0, 0, nullptr);
                 });
               }),
               ExceptionFileMapIO);
  EXPECT_EQ(inner, 10);
  EXPECT_EQ(outer, 1);
}

TEST(AccessMappedView, ExceptionsOfTheLanguagePassWithTheirDestructors) {
  int alive = 0;
  ExpectFailure<ExceptionBase>(
      [&] {
        AccessMappedView([&] {
          const AliveCounter first(alive);
          const AliveCounter second(alive);
          throw ExceptionBase("from inside");
        });
      },
      "from inside");
  EXPECT_EQ(alive, 0);
  EXPECT_THROW(AccessMappedView([] { throw 5; }), int);
}

TEST(AccessMappedView, WorksInsideAHandlerOfAnException) {
  try {
    throw ExceptionBase("outer");
  } catch (const ExceptionBase& outer) {
    EXPECT_EQ(CodeOf([] { RaiseException(0xE0000001U, 0, 0, nullptr); }), 0xE0000001U);
    EXPECT_EQ(outer.GetMessage(), "outer");
  }
}

TEST(AccessMappedView, WorksOnSeveralThreadsAtOnce) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&wrong, thread] {
      Page page;
      page.Shut();
      for (int run = 0; run < 100; ++run) {
        const std::uint32_t own = 0xE0000100U + static_cast<std::uint32_t>(thread);
        if (CodeOf([&] { RaiseException(own, 0, 0, nullptr); }) != own) ++wrong;
        if (CodeOf([&] { page.Bytes()[0] = 1; }) != kAccessViolation) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// Also checks that a guard which has ended no longer catches faults.
TEST(FaultGuardDeathTest, OutsideAGuardAFaultEndsTheProcess) {
  EXPECT_EXIT(
      {
        AccessMappedView([] {});
        Page page;
        page.Shut();
        page.Bytes()[0] = 1;
      },
      testing::ExitedWithCode(static_cast<int>(kAccessViolation)), "");
}

}  // namespace
}  // namespace TamLogUtil
