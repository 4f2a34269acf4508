#include "tests/support/requests.h"

#include <stdexcept>

namespace TestSupport {

PipeRequest RequestOf(std::uint32_t code) {
  PipeRequest request{};
  request.code = code;
  return request;
}

PipeRequest RequestOf(RequestCode code) {
  return RequestOf(static_cast<std::uint32_t>(code));
}

PipeRequest SubmitRequest(const LogMessageBody& message) {
  PipeRequest request = RequestOf(RequestCode::SubmitMessage);
  request.message = message;
  return request;
}

PipeRequest SettingsRequest(const SettingsBody& settings) {
  PipeRequest request = RequestOf(RequestCode::SetSettings);
  request.settings = settings;
  return request;
}

PipeRequest PathRequest(const std::string& path) {
  PipeRequest request = RequestOf(RequestCode::SetLogFile);
  if (path.size() > sizeof(request.path)) throw std::runtime_error("the path does not fit a request");
  path.copy(request.path, sizeof(request.path));
  return request;
}

PipeRequest IndexRequest(std::uint32_t index) {
  PipeRequest request = RequestOf(RequestCode::GetFilter);
  request.index = index;
  return request;
}

PipeRequest FilterRequest(const std::string& text, bool include) {
  PipeRequest request = RequestOf(RequestCode::AddFilter);
  if (text.size() >= kFilterTextSize) throw std::runtime_error("the filter does not fit a request");
  text.copy(request.filter.text, text.size());
  request.filter.kind = include ? 1 : 0;
  return request;
}

}  // namespace TestSupport
