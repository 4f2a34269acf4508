#pragma once

// How every failure in the system is reported: an exception that carries its own message and, as an owned
// copy, the exception that caused it. The place that finally logs it writes the whole chain, outermost first,
// one level a line.
//
// Throwing conventions:
//  - a thin wrapper around one system call throws ExceptionWindows with a short text naming the call, no
//    cause;
//  - an operation that uses such a wrapper catches ExceptionBase& and throws a plain ExceptionBase with a
//    sentence of its own and the caught one as the cause;
//  - misuse throws a plain ExceptionBase without a cause.
// Exceptions are thrown by value and caught by reference. The objects are not shared between threads.

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

namespace TamLogUtil::Exceptions {

class ExceptionBase : public std::exception {
 public:
  // `cause` may be null; otherwise a clone of it is kept, so it may be destroyed as soon as this returns.
  explicit ExceptionBase(std::string text, const ExceptionBase* cause = nullptr);
  ExceptionBase(const ExceptionBase& other);
  ExceptionBase& operator=(const ExceptionBase&) = delete;
  ~ExceptionBase() override;

  // Compose("\n"). The pointer stays valid as long as this object; null-terminated. Not thread-safe (fills a
  // cache).
  const char* what() const noexcept override;

  // This level's own text, without its causes.
  virtual std::string GetMessage() const;

  // A heap copy of the same dynamic type, with a fresh clone of the causes.
  virtual std::unique_ptr<ExceptionBase> Clone() const;

  // The text of this level, then `separator` and the causes' texts. Deeper levels are always joined with
  // "\n", whatever the separator.
  std::string Compose(const std::string& separator) const;

 protected:
  const std::string& Message() const { return message; }

 private:
  std::string message;
  std::unique_ptr<ExceptionBase> inner;
  mutable std::string composed;
};

// A failed call of the operating system.
class ExceptionWindows : public ExceptionBase {
 public:
  // With `code` 0 the calling thread's last error is taken, so the object has to be built right after the
  // failing call, before any clean-up.
  explicit ExceptionWindows(std::string_view text, const ExceptionBase* cause = nullptr,
                            std::uint32_t code = 0);

  // message, " - Error code : ", the decimal code, " - ", the system's own text for the code (with the CR LF
  // in which system texts end; empty where the system has none).
  std::string GetMessage() const override;
  std::unique_ptr<ExceptionBase> Clone() const override;

  std::uint32_t ErrorCode() const { return errorCode; }

 private:
  ExceptionWindows(std::uint32_t knownCode, std::string_view text, const ExceptionBase* cause);

  std::uint32_t errorCode;
};

// A fault while reading or writing the mapped log file view. The type says it all; no data is added.
class ExceptionFileMapIO : public ExceptionBase {
 public:
  using ExceptionBase::ExceptionBase;
  std::unique_ptr<ExceptionBase> Clone() const override;
};

}  // namespace TamLogUtil::Exceptions
