#pragma once

// The exceptions by which every failure is reported: a message and an owned copy of the exception that caused
// it. The handler that finally logs it writes the whole chain, outermost first, one level a line.
//
// Throwing conventions:
//  - a thin wrapper around one system call throws ExceptionWindows with a short text naming the call, without
//  a
//    cause;
//  - an operation that uses such a wrapper catches ExceptionBase& and throws a plain ExceptionBase with its
//  own
//    sentence and the caught one as the cause;
//  - misuse throws a plain ExceptionBase without a cause.
// Thrown by value, caught by reference. An object is used by one thread.

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

namespace TamLogUtil::Exceptions {

class ExceptionBase : public std::exception {
 public:
  // Keeps a clone of `cause`, which may be null.
  explicit ExceptionBase(std::string text, const ExceptionBase* cause = nullptr);
  ExceptionBase(const ExceptionBase& other);
  ExceptionBase& operator=(const ExceptionBase&) = delete;
  ~ExceptionBase() override;

  // Returns Compose("\n"), valid as long as this object. Not thread-safe: fills a cache.
  const char* what() const noexcept override;

  // This level's own text, without its causes.
  virtual std::string GetMessage() const;

  // Returns a copy of the same dynamic type, with clones of the causes.
  virtual std::unique_ptr<ExceptionBase> Clone() const;

  // Returns the text of this level, then `separator` and the causes' texts. Deeper levels are always joined
  // with "\n", whatever the separator.
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
  // `code` 0 selects the calling thread's last error: then construct this right after the failing call,
  // before any clean-up.
  explicit ExceptionWindows(std::string_view text, const ExceptionBase* cause = nullptr,
                            std::uint32_t code = 0);

  // Returns the message, " - Error code : ", the decimal code, " - ", the system's text for the code
  // (including the CR LF at its end; empty when the system has none).
  std::string GetMessage() const override;
  std::unique_ptr<ExceptionBase> Clone() const override;

  std::uint32_t ErrorCode() const { return errorCode; }

 private:
  ExceptionWindows(std::uint32_t knownCode, std::string_view text, const ExceptionBase* cause);

  std::uint32_t errorCode;
};

// A fault while reading or writing the mapped view of the log file.
class ExceptionFileMapIO : public ExceptionBase {
 public:
  using ExceptionBase::ExceptionBase;
  std::unique_ptr<ExceptionBase> Clone() const override;
};

}  // namespace TamLogUtil::Exceptions
