#include "util/exceptions.h"

#include <utility>

namespace TamLogUtil::Exceptions {

ExceptionBase::ExceptionBase(std::string text, const ExceptionBase* cause)
    : message(std::move(text)), inner(cause == nullptr ? nullptr : cause->Clone()) {}

ExceptionBase::ExceptionBase(const ExceptionBase& other)
    : std::exception(other),
      message(other.message),
      inner(other.inner == nullptr ? nullptr : other.inner->Clone()) {}

ExceptionBase::~ExceptionBase() = default;

const char* ExceptionBase::what() const noexcept {
  try {
    if (composed.empty()) composed = Compose("\n");
    return composed.c_str();
  } catch (...) {
    // Without memory for the whole chain, its outermost text is better than the end of the process.
    return message.c_str();
  }
}

std::string ExceptionBase::GetMessage() const {
  return message;
}

std::unique_ptr<ExceptionBase> ExceptionBase::Clone() const {
  return std::make_unique<ExceptionBase>(*this);
}

std::string ExceptionBase::Compose(const std::string& separator) const {
  std::string text = GetMessage();
  if (inner != nullptr) {
    text += separator;
    text += inner->Compose("\n");
  }
  return text;
}

std::unique_ptr<ExceptionBase> ExceptionFileMapIO::Clone() const {
  return std::make_unique<ExceptionFileMapIO>(*this);
}

}  // namespace TamLogUtil::Exceptions
