#include "fuzz/server_model.h"

#include <algorithm>
#include <cstring>

#include "fuzz/input.h"
#include "server/configuration.h"
#include "tests/native/machine.h"
#include "util/exceptions.h"

namespace Fuzz {
namespace {

using TamLogUtil::Exceptions::ExceptionBase;

const std::string kFiltersKey = std::string(kConfigurationKey) + '\\' + kFiltersSubkey;

std::string TextOf(const PipeRequest& request) {
  const auto* const text = reinterpret_cast<const char*>(request.bytes);
  return {text, strnlen(text, sizeof request.bytes)};
}

std::string UpToZero(const std::string& data) {
  return data.c_str();
}

bool IsLegal(RequestCode request, std::uint32_t code) {
  switch (request) {
    case RequestCode::GetFileMapName:
      return code == static_cast<std::uint32_t>(ReplyCode::FileMapName);
    case RequestCode::Ping:
      return code == static_cast<std::uint32_t>(ReplyCode::Alive);
    case RequestCode::GetSettings:
      return code == static_cast<std::uint32_t>(ReplyCode::Settings);
    case RequestCode::GetLogFile:
    case RequestCode::GetDefaultLogFile:
      return code == static_cast<std::uint32_t>(ReplyCode::Path);
    case RequestCode::GetFilter:
      return code == static_cast<std::uint32_t>(ReplyCode::Filter) ||
             code == static_cast<std::uint32_t>(ReplyCode::NoSuchFilter);
    case RequestCode::ClearLog:  // fails while no file is open
      return code == static_cast<std::uint32_t>(ReplyCode::Done) ||
             code == static_cast<std::uint32_t>(ReplyCode::Failed);
    case RequestCode::SubmitMessage:
    case RequestCode::SetSettings:
    case RequestCode::SetLogFile:
    case RequestCode::ClearFilters:
    case RequestCode::AddFilter:
      return code == static_cast<std::uint32_t>(ReplyCode::Done);
  }
  return code == static_cast<std::uint32_t>(ReplyCode::UnknownRequest);
}

}  // namespace

bool ServerModel::Start() {
  bool started = true;
  try {
    service->OnStart();
  } catch (const ExceptionBase&) {
    started = false;
  }
  LearnFromRegistry();
  return started;
}

bool ServerModel::Stop() {
  try {
    service->OnStop();
    return true;
  } catch (const ExceptionBase&) {
    return false;
  }
}

void ServerModel::RunRestarts() {
  const std::uint32_t before = NativeMachine::DriverOpens();
  NativeMachine::RunThreads();
  if (NativeMachine::DriverOpens() != before) LearnFromRegistry();
}

std::optional<PipeReply> ServerModel::Ask(const std::string& bytes) {
  buffer->record.code = 0;
  std::memcpy(&buffer->record, bytes.data(), std::min(bytes.size(), sizeof buffer->record));
  return Carry();
}

std::optional<PipeReply> ServerModel::Ask(const PipeRequest& request) {
  buffer->record = request;
  return Carry();
}

std::optional<PipeReply> ServerModel::Carry() {
  const PipeRequest request = buffer->record;
  // The transport answers these requests itself.
  if (request.code < kFirstHandledCode || request.code > kLastHandledCode) return *reply;
  const bool end = EndsProcess(request);
  reply->code = static_cast<std::uint32_t>(ReplyCode::Done);
  try {
    service->HandleMessage(buffer->record, *reply);
  } catch (const NativeMachine::ProcessEnded&) {
    Require(end);
    return std::nullopt;
  }
  Require(!end);
  Learn(request);
  CheckReply(request);
  return *reply;
}

const std::string* ServerModel::FilterAt(std::size_t index) const {
  if (index < includes.size()) return &includes[index];
  index -= includes.size();
  return index < excludes.size() ? &excludes[index] : nullptr;
}

// The complete list of requests that end the process. The text comes from the pipe (a filter without a zero
// in its field extends into its kind and beyond) or from the registry.
bool ServerModel::EndsProcess(const PipeRequest& request) const {
  switch (static_cast<RequestCode>(request.code)) {
    case RequestCode::GetLogFile:
      return logFile.size() >= sizeof PipeReply::path;
    case RequestCode::GetFilter: {
      const std::string* const filter = FilterAt(request.index);
      return filter != nullptr && filter->size() >= kFilterTextSize;
    }
    default:
      return false;
  }
}

void ServerModel::Learn(const PipeRequest& request) {
  switch (static_cast<RequestCode>(request.code)) {
    case RequestCode::SetLogFile:
      logFile = TextOf(request);
      break;
    case RequestCode::ClearFilters:
      includes.clear();
      excludes.clear();
      break;
    case RequestCode::AddFilter:
      (request.filter.kind != 0 ? includes : excludes).push_back(TextOf(request));
      break;
    default:
      break;
  }
}

void ServerModel::CheckReply(const PipeRequest& request) const {
  Require(IsLegal(static_cast<RequestCode>(request.code), reply->code));
  switch (static_cast<ReplyCode>(reply->code)) {
    case ReplyCode::Filter: {
      const std::string* const filter = FilterAt(request.index);
      Require(filter != nullptr && *filter == reply->filter.text);
      Require(reply->filter.kind == (request.index < includes.size() ? 1U : 0U));
      break;
    }
    case ReplyCode::NoSuchFilter:
      Require(FilterAt(request.index) == nullptr);
      break;
    case ReplyCode::Path:
      Require(request.code != static_cast<std::uint32_t>(RequestCode::GetLogFile) || logFile == reply->path);
      break;
    default:
      break;
  }
}

// A second implementation of how a start reads the registry: each value as far as its bytes fit, the path
// first; the first value that cannot be read ends the start and leaves all later ones unchanged.
void ServerModel::LearnFromRegistry() {
  const auto values = NativeMachine::Values(kConfigurationKey);
  const auto find = [&values](const char* name) -> const std::string* {
    const auto found = std::find_if(values.begin(), values.end(), [name](const auto& value) {
      return std::equal(value.first.begin(), value.first.end(), name, name + std::strlen(name),
                        [](char a, char b) { return (a | 0x20) == (b | 0x20); });
    });
    return found == values.end() ? nullptr : &found->second;
  };
  const std::string* const path = find("LogFile");
  if (path == nullptr || path->size() > RegistryKey::kTextBufferSize) return;
  logFile = UpToZero(*path);
  for (const char* const name : {"MaxMessage", "DevicePollRate", "SaveRate", "TypeFilter"}) {
    const std::string* const number = find(name);
    if (number == nullptr || number->size() > sizeof(std::uint32_t)) return;
  }
  includes.clear();
  excludes.clear();
  for (const auto& [name, data] : NativeMachine::Values(kFiltersKey)) {
    if (name.size() >= RegistryKey::kNameBufferSize) return;
    const std::string text = UpToZero(data);
    if (!text.empty()) (text.front() == 'i' ? includes : excludes).push_back(text.substr(1));
  }
}

}  // namespace Fuzz
