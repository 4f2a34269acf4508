#include "tests/support/watchdog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <thread>

#ifdef _WIN32
#include "util/win32.h"

// Requires windows.h.
#include <tlhelp32.h>
#endif

namespace TestSupport {
namespace {

constexpr int kDefaultLimitSeconds = 180;
constexpr int kPollMs = 100;

// The steady clock's time in milliseconds at which the watchdog ends the present test; 0: never.
std::atomic<std::int64_t> deadline{0};

std::int64_t NowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

int LimitSeconds() {
  const char* text = std::getenv("TAMLOG_TEST_LIMIT");
  return text == nullptr ? kDefaultLimitSeconds : static_cast<int>(std::strtol(text, nullptr, 10));
}

#ifdef _WIN32

constexpr int kMaxFrames = 48;

// Returns whether the address belongs to the test's own code rather than to the system's.
bool IsOwnCode(DWORD64 address) {
  const auto* const image = reinterpret_cast<const char*>(GetModuleHandleA(nullptr));
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
  const auto base = reinterpret_cast<DWORD64>(image);
  return address >= base && address < base + headers->OptionalHeader.SizeOfImage;
}

// Unwinds with the images' own tables.
void PrintFrames(CONTEXT context) {
  for (int frame = 0; frame < kMaxFrames && context.Rip != 0; ++frame) {
    std::cerr << "    " << (IsOwnCode(context.Rip) ? "test   0x" : "system 0x") << std::hex << context.Rip
              << std::dec << '\n';
    DWORD64 image = 0;
    RUNTIME_FUNCTION* const function = RtlLookupFunctionEntry(context.Rip, &image, nullptr);
    if (function == nullptr) {
      // A function without a frame: the return address is on top of the stack.
      // NOLINTNEXTLINE(performance-no-int-to-ptr): a register of another thread
      context.Rip = *reinterpret_cast<const DWORD64*>(context.Rsp);
      context.Rsp += sizeof(DWORD64);
      continue;
    }
    void* handlerData = nullptr;
    DWORD64 establisher = 0;
    RtlVirtualUnwind(UNW_FLAG_NHANDLER, image, context.Rip, function, &context, &handlerData, &establisher,
                     nullptr);
  }
}

void PrintThread(DWORD id) {
  const HANDLE thread = OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, FALSE, id);
  if (thread == nullptr) return;
  CONTEXT context{};
  context.ContextFlags = CONTEXT_FULL;
  if (SuspendThread(thread) != static_cast<DWORD>(-1)) {
    const bool known = GetThreadContext(thread, &context) != 0;
    ResumeThread(thread);
    std::cerr << "  thread " << id << '\n';
    if (known) PrintFrames(context);
  }
  CloseHandle(thread);
}

void PrintThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Thread32First(snapshot, &entry); more != 0; more = Thread32Next(snapshot, &entry)) {
    const bool other = entry.th32ThreadID != GetCurrentThreadId();
    if (entry.th32OwnerProcessID == GetCurrentProcessId() && other) PrintThread(entry.th32ThreadID);
  }
  CloseHandle(snapshot);
}

void Pause() {
  Sleep(kPollMs);
}

void EndProcess() {
  TerminateProcess(GetCurrentProcess(), kWatchdogExitCode);
}

#else

void PrintThreads() {}

void Pause() {
  std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
}

void EndProcess() {
  std::_Exit(kWatchdogExitCode);
}

#endif

void GiveUp() {
  const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
  std::cerr << "watchdog: " << (test == nullptr ? "a test" : test->test_suite_name()) << '.'
            << (test == nullptr ? "?" : test->name()) << " hangs" << std::endl;
  PrintThreads();
  std::cerr.flush();
  EndProcess();
}

// Polls rather than waits: the calls of the watchdog must not mix with those of tests that make events and
// waits fail.
void Watch() {
  for (;;) {
    Pause();
    const std::int64_t end = deadline;
    if (end != 0 && NowMs() > end) GiveUp();
  }
}

#ifdef _WIN32
DWORD WINAPI WatchThread(void* /*unused*/) {
  Watch();
  return 0;
}
#endif

class Listener : public testing::EmptyTestEventListener {
  void OnTestProgramStart(const testing::UnitTest& /*test*/) override {
#ifdef _WIN32
    const HANDLE thread = CreateThread(nullptr, 0, &WatchThread, nullptr, 0, nullptr);
    if (thread != nullptr) CloseHandle(thread);
#else
    std::thread(&Watch).detach();
#endif
  }
  void OnTestStart(const testing::TestInfo& /*test*/) override {
    SetWatchdogLimit(LimitSeconds());
  }
  void OnTestEnd(const testing::TestInfo& /*test*/) override {
    deadline = 0;
  }
};

const bool registered = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new Listener);
  return true;
}();

}  // namespace

void SetWatchdogLimit(int seconds) {
  deadline = seconds == 0 ? 0 : NowMs() + std::int64_t{1000} * seconds;
}

}  // namespace TestSupport
