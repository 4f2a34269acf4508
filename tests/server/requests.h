#pragma once

// Requests as a client writes them, passed directly to the service object like by a connection's thread.

#include <cstring>
#include <string>

#include "records/pipe_protocol.h"
#include "server/server_service.h"

// The reply's buffer before a request, so that tests see which bytes a request sets.
inline constexpr char kStale = '\xAA';

// The record as the transport keeps it: followed by a zero byte.
struct GuardedRequest {
  PipeRequest request;
  char guard;
};

inline GuardedRequest MakeRequest(RequestCode code) {
  GuardedRequest made;
  std::memset(&made, 0, sizeof made);
  made.request.code = static_cast<std::uint32_t>(code);
  return made;
}

// `text` fills the body from its start; when it is shorter, zeros follow.
inline GuardedRequest MakeRequest(RequestCode code, const std::string& text) {
  GuardedRequest made = MakeRequest(code);
  text.copy(reinterpret_cast<char*>(made.request.bytes), sizeof made.request.bytes);
  return made;
}

inline PipeReply Ask(ServerService& service, const GuardedRequest& asked) {
  PipeReply reply;
  std::memset(&reply, kStale, sizeof reply);
  reply.code = static_cast<std::uint32_t>(ReplyCode::Done);
  service.HandleMessage(asked.request, reply);
  return reply;
}

inline PipeReply Ask(ServerService& service, RequestCode code) {
  return Ask(service, MakeRequest(code));
}

inline PipeReply AddFilter(ServerService& service, const std::string& text, std::uint32_t kind) {
  GuardedRequest asked = MakeRequest(RequestCode::AddFilter, text);
  asked.request.filter.kind = kind;
  return Ask(service, asked);
}

inline PipeReply GetFilter(ServerService& service, std::uint32_t index) {
  GuardedRequest asked = MakeRequest(RequestCode::GetFilter);
  asked.request.index = index;
  return Ask(service, asked);
}

inline PipeReply SetSettings(ServerService& service, const SettingsBody& settings) {
  GuardedRequest asked = MakeRequest(RequestCode::SetSettings);
  asked.request.settings = settings;
  return Ask(service, asked);
}

inline SettingsBody Settings(ServerService& service) {
  return Ask(service, RequestCode::GetSettings).settings;
}

inline PipeReply Submit(ServerService& service, const LogMessageBody& message) {
  GuardedRequest asked = MakeRequest(RequestCode::SubmitMessage);
  asked.request.message = message;
  return Ask(service, asked);
}

inline bool Is(const PipeReply& reply, ReplyCode code) {
  return reply.code == static_cast<std::uint32_t>(code);
}

// Whether the reply's body from `offset` on (counted from the start of the body) is unchanged by the request.
inline bool BodyUntouchedFrom(const PipeReply& reply, std::size_t offset) {
  for (std::size_t i = offset; i < sizeof reply.bytes; ++i) {
    if (reply.bytes[i] != static_cast<std::uint8_t>(kStale)) return false;
  }
  return true;
}
