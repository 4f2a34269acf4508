#pragma once

// The interface between the server's code, the swept calls and the system; for call_sweep.cpp and the table
// of calls in swept_calls.cpp only.

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "tests/support/real_call.h"
#include "util/win32.h"

namespace TestSupport::Swept {

enum class WhenItFails : std::uint8_t {
  NothingHappens,
  // The failing call still takes effect. For calls that release something: a resource that they fail to
  // release would stay open for good, whatever the server does. The same applies to the cancellation of I/O
  // that still uses a buffer.
  ItWasDoneAllTheSame,
  // For SetEvent: either of the above, as the test requests.
  AsAsked,
};

struct Call {
  const char* name;
  const char* module;
  std::int64_t failure;  // the result of the failing call
  DWORD error;           // the last error that it sets
  WhenItFails when = WhenItFails::NothingHappens;
  // The resource that a success opens: its kind, and the argument that receives it; -1: it is the result.
  char opens = 0;
  int openedBy = -1;
  // The resource that the call closes, whether it fails or not.
  char closes = 0;
  int closed = 0;
  // The failing call returns its first argument instead of `failure`.
  bool failureIsArgument = false;
};

// Kinds of resources.
inline constexpr char kHandle = 'h';
inline constexpr char kView = 'v';
inline constexpr char kKey = 'k';
inline constexpr char kService = 's';
inline constexpr char kMemory = 'm';

// Returns whether this call, made from `site`, is the one to fail. Keeps the last error.
bool TakeFault(const Call& call, void* site);
// `first`: the call's first argument.
bool IsDoneAllTheSame(const Call& call, std::uintptr_t first);
// Record the open resources. Null and the invalid handle do not count. Each function keeps the last error.
// `gate`: the resource is an event that only a lock in memory knows. A failing SetEvent never sets it: the
// lock relies on that.
void NoteOpened(const Call& call, std::uintptr_t resource, bool gate);
bool IsGate(std::uintptr_t handle);
void NoteClosed(const Call& call, std::uintptr_t resource);
// During its lifetime no other thread is in NoteOpened or NoteClosed: a thread that is ended by force there
// would keep their lock.
class NobodyNotes {
 public:
  NobodyNotes();
  ~NobodyNotes();
  NobodyNotes(const NobodyNotes&) = delete;
  NobodyNotes& operator=(const NobodyNotes&) = delete;
};

template <class Value>
std::uintptr_t AsNumber(const Value& value) {
  if constexpr (std::is_pointer_v<Value>) {
    return reinterpret_cast<std::uintptr_t>(value);
  } else {
    return static_cast<std::uintptr_t>(value);
  }
}

template <class Value>
Value FromNumber(std::int64_t number) {
  if constexpr (std::is_pointer_v<Value>) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the invalid handle
    return reinterpret_cast<Value>(number);
  } else {
    return static_cast<Value>(number);
  }
}

template <const Call& call, class Function>
struct Hook;

template <const Call& call, class Result, class... Arguments>
struct Hook<call, Result (*)(Arguments...)> {
  static Result Run(Arguments... arguments) {
    void* const site = __builtin_return_address(0);
    const DWORD before = GetLastError();
    const std::tuple<Arguments...> all(arguments...);
    const bool fails = TakeFault(call, site);
    [[maybe_unused]] const bool gate = MakesGate(all);
    NoteWhatCloses(all);
    if (fails && !IsDoneAllTheSame(call, FirstOf(all))) return Fail(all);

    const auto real = RealCall<Result (*)(Arguments...)>(call.module, call.name);
    SetLastError(before);
    const Result result = CallReal(real, arguments...);
    const DWORD after = GetLastError();
    if constexpr (kOpens) NoteOpened(call, Opened(result, all), gate);
    if (fails) return Fail(all);
    SetLastError(after);
    return result;
  }

 private:
  using Real = Result (*)(Arguments...);

  // Defined here, where the compiler sees that it depends on the call.
  static constexpr bool kDuplicates = std::string_view(call.name) == "DuplicateHandle";
  static constexpr bool kMakesEvent = std::string_view(call.name) == "CreateEventA";
  static constexpr bool kEndsThread = std::string_view(call.name) == "TerminateThread";
  static constexpr bool kOpens = call.opens != 0;
  static constexpr bool kCloses = call.closes != 0;
  static constexpr bool kReturnsArgument = call.failureIsArgument;

  static Result CallReal(Real real, Arguments... arguments) {
    if constexpr (kEndsThread) {
      const NobodyNotes nobody;
      return real(arguments...);
    } else {
      return real(arguments...);
    }
  }

  static std::uintptr_t FirstOf(const std::tuple<Arguments...>& all) {
    if constexpr (sizeof...(Arguments) == 0) {
      return 0;
    } else {
      return AsNumber(std::get<0>(all));
    }
  }

  static bool MakesGate(const std::tuple<Arguments...>& all) {
    if constexpr (kMakesEvent) {
      // Neither manual nor named.
      return std::get<1>(all) == FALSE && std::get<3>(all) == nullptr;
    } else if constexpr (kDuplicates) {
      return IsGate(AsNumber(std::get<1>(all)));
    } else {
      return false;
    }
  }

  static void NoteWhatCloses(const std::tuple<Arguments...>& all) {
    if constexpr (kDuplicates) {
      if ((std::get<6>(all) & DUPLICATE_CLOSE_SOURCE) != 0) NoteClosed(call, AsNumber(std::get<1>(all)));
    } else if constexpr (kCloses) {
      NoteClosed(call, AsNumber(std::get<static_cast<std::size_t>(call.closed)>(all)));
    }
  }

  static std::uintptr_t Opened(const Result& result, const std::tuple<Arguments...>& all) {
    if constexpr (call.openedBy < 0) {
      return AsNumber(result);
    } else {
      const bool succeeded = call.failure == 0 ? AsNumber(result) != 0 : AsNumber(result) == 0;
      if (!succeeded) return 0;
      const auto receiver = std::get<static_cast<std::size_t>(call.openedBy)>(all);
      return *reinterpret_cast<const std::uintptr_t*>(receiver);
    }
  }

  static Result Fail(const std::tuple<Arguments...>& all) {
    if constexpr (kDuplicates) {
      // The system closes the source whether or not it can make the duplicate.
      if ((std::get<6>(all) & DUPLICATE_CLOSE_SOURCE) != 0) CloseHandle(std::get<1>(all));
    }
    SetLastError(call.error);
    if constexpr (kReturnsArgument) {
      return std::get<0>(all);
    } else {
      return FromNumber<Result>(call.failure);
    }
  }
};

}  // namespace TestSupport::Swept
