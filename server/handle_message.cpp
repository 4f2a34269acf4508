// Carries out the requests of pipe clients. records/pipe_protocol.h and docs/pipe_protocol.md define requests
// and replies.
//
// A reply's buffer belongs to the connection and is never cleared: only the fields that belong to the reply
// code are set. A failure is logged and answered with Failed; clients get no details.

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "server/configuration.h"
#include "server/restart_thread.h"
#include "server/server_service.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"
#include "util/helpers.h"

using TamLogUtil::CopyBoundedOrEndProcess;
using TamLogUtil::Mutex;
using TamLogUtil::Timeout;
using TamLogUtil::Exceptions::ExceptionBase;

namespace {

constexpr std::uint32_t kLeastMaxMessage = 1;
constexpr std::uint32_t kMostMaxMessage = 1000000;

void SetCode(PipeReply& reply, ReplyCode code) {
  reply.code = static_cast<std::uint32_t>(code);
}

// The text at the start of the body, up to its first zero byte. A text that is not terminated in its field
// continues into the next one (a filter's text into its kind), at most to the end of the record.
std::string TextOf(const PipeRequest& request) {
  const char* const body = reinterpret_cast<const char*>(request.bytes);
  return {body, strnlen(body, sizeof request.bytes)};
}

// A text that does not fit the reply ends the process, on purpose: see CopyBoundedOrEndProcess.
void ReplyWithPath(PipeReply& reply, std::string_view path) {
  CopyBoundedOrEndProcess(reply.path, sizeof reply.path, path);
}

void GetFileMapName(PipeReply& reply) {
  SetCode(reply, ReplyCode::FileMapName);
  ReplyWithPath(reply, kFileMapName);
}

void GetDefaultLogFile(PipeReply& reply) {
  ReplyWithPath(reply, TamLogUtil::PathBesideExecutable(kDefaultLogFileName));
  SetCode(reply, ReplyCode::Path);
}

}  // namespace

void ServerService::HandleMessage(const PipeRequest& request, PipeReply& reply) {
  try {
    CarryOut(request, reply);
  } catch (const ExceptionBase& exception) {
    TamLogUtil::WriteLog("Exception thrown in message handler : " + exception.Compose("\n"));
    SetCode(reply, ReplyCode::Failed);
  }
}

void ServerService::CarryOut(const PipeRequest& request, PipeReply& reply) {
  switch (static_cast<RequestCode>(request.code)) {
    case RequestCode::GetFileMapName:
      return GetFileMapName(reply);
    case RequestCode::SubmitMessage:
      return SubmitMessage(request.message, reply);
    case RequestCode::Ping:  // takes no lock, so it is answered at once
      return SetCode(reply, ReplyCode::Alive);
    case RequestCode::GetSettings:
      return GetSettings(reply);
    case RequestCode::SetSettings:
      return SetSettings(request.settings, reply);
    case RequestCode::GetLogFile:
      return GetLogFile(reply);
    case RequestCode::SetLogFile:
      return SetLogFile(request, reply);
    case RequestCode::GetFilter:
      return GetFilter(request.index, reply);
    case RequestCode::ClearFilters:
      return ClearFilters(reply);
    case RequestCode::AddFilter:
      return AddFilter(request, reply);
    case RequestCode::GetDefaultLogFile:
      return GetDefaultLogFile(reply);
    case RequestCode::ClearLog:
      return ClearLog(reply);
  }
  SetCode(reply, ReplyCode::UnknownRequest);
}

// The reply does not say whether the filters keep the message.
void ServerService::SubmitMessage(const LogMessageBody& message, PipeReply& reply) {
  SetCode(reply, ReplyCode::Done);
  const Mutex::Access access(messageLock, Timeout::Infinite);
  messageFile.AddMessage(message);
}

// Reports the capacity last requested, which is not always the one in effect.
void ServerService::GetSettings(PipeReply& reply) {
  const Mutex::Access access(configLock, Timeout::Infinite);
  SetCode(reply, ReplyCode::Settings);
  reply.settings.maxMessage = configuration.requestedMaxMessage;
  reply.settings.devicePollRate = configuration.devicePollRate;
  reply.settings.typeFilter = TamLogUtil::PackFlags(configuration.typeFilter, kMessageTypes);
  reply.settings.saveRate = configuration.saveRate;
}

// Only the capacity is clamped; the rates are stored unchanged, even 0.
void ServerService::SetSettings(const SettingsBody& settings, PipeReply& reply) {
  const Mutex::Access access(configLock, Timeout::Infinite);
  SetCode(reply, ReplyCode::Done);
  configuration.requestedMaxMessage = std::clamp(settings.maxMessage, kLeastMaxMessage, kMostMaxMessage);
  configuration.devicePollRate = settings.devicePollRate;
  configuration.saveRate = settings.saveRate;
  TamLogUtil::UnpackFlags(settings.typeFilter, configuration.typeFilter, kMessageTypes);
  StartRestart();
}

void ServerService::GetLogFile(PipeReply& reply) {
  const Mutex::Access access(configLock, Timeout::Infinite);
  SetCode(reply, ReplyCode::Path);
  ReplyWithPath(reply, configuration.logFile);
}

// No restart: the file moves at the next stop.
void ServerService::SetLogFile(const PipeRequest& request, PipeReply& reply) {
  const Mutex::Access access(configLock, Timeout::Infinite);
  SetCode(reply, ReplyCode::Done);
  configuration.logFile = TextOf(request);
}

// The index runs over the include filters, then over the exclude filters.
void ServerService::GetFilter(std::uint32_t index, PipeReply& reply) {
  const Mutex::Access access(configLock, Timeout::Infinite);
  const std::size_t includes = configuration.includeFilters.size();
  const bool include = index < includes;
  const auto& list = include ? configuration.includeFilters : configuration.excludeFilters;
  const std::size_t place = include ? index : index - includes;
  if (place >= list.size()) return SetCode(reply, ReplyCode::NoSuchFilter);
  reply.filter.kind = include ? 1 : 0;
  SetCode(reply, ReplyCode::Filter);
  CopyBoundedOrEndProcess(reply.filter.text, sizeof reply.filter.text, list[place]);
}

void ServerService::ClearFilters(PipeReply& reply) {
  const Mutex::Access access(configLock, Timeout::Infinite);
  SetCode(reply, ReplyCode::Done);
  configuration.includeFilters.clear();
  configuration.excludeFilters.clear();
}

void ServerService::AddFilter(const PipeRequest& request, PipeReply& reply) {
  const Mutex::Access access(configLock, Timeout::Infinite);
  SetCode(reply, ReplyCode::Done);
  auto& list = request.filter.kind != 0 ? configuration.includeFilters : configuration.excludeFilters;
  list.push_back(TextOf(request));
}

// configLock stays held while ClearMessages waits for the readers of the file, so that no message is accepted
// between the clearing and the restart's claim on the settings. A reader that keeps its access therefore
// blocks the intake of messages too.
void ServerService::ClearLog(PipeReply& reply) {
  const Mutex::Access access(configLock, Timeout::Infinite);
  SetCode(reply, ReplyCode::Done);
  messageFile.ClearMessages();
  StartRestart();
}

// The thread waits a second before it stops the server, so the reply to this request leaves first.
void ServerService::StartRestart() {
  auto restart = std::make_unique<RestartThread>(*this);
  restart->Start();
  // The started thread owns itself and may already be gone.
  static_cast<void>(restart.release());
}
