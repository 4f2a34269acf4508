// The C interface to LogClient.

#include <memory>
#include <string>

#include "client/c/c_interface.h"
#include "client/live/log_client.h"
#include "client/message/local_time.h"
#include "client/message/message_body.h"

using TamLogClient::CodeOf;
using TamLogClient::Guarded;
using TamLogClient::LogClient;
using TamLogClient::Status;

struct tamlog_client {
  explicit tamlog_client(const TamLogClient::LogClientOptions& options) : client(options) {}
  LogClient client;
};

namespace {

template <class Question>
tamlog_status Ask(tamlog_client* handle, Question&& question) {
  if (handle == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] { return CodeOf(question(handle->client)); });
}

tamlog_status AskPath(tamlog_client* handle, Status (LogClient::*question)(std::string&), char* buffer,
                      uint64_t capacity, uint64_t* length) {
  if (handle == nullptr || buffer == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] {
    std::string path;
    const Status status = (handle->client.*question)(path);
    return status == Status::Ok ? TamLogClient::CopyText(path, buffer, capacity, length) : CodeOf(status);
  });
}

}  // namespace

tamlog_status TAMLOG_CALL tamlog_client_open(const tamlog_client_options* options, tamlog_client** client) {
  tamlog_client_options given;
  if (client == nullptr || !TamLogClient::CopyIn(options, given)) return TAMLOG_BAD_ARGUMENT;
  return Guarded([&] {
    TamLogClient::LogClientOptions chosen;
    if (given.pipe_name != nullptr) chosen.pipeName = given.pipe_name;
    if (given.timeout_ms != 0) chosen.timeoutMs = given.timeout_ms;
    if (given.absent_ms != 0) chosen.absentMs = given.absent_ms;
    *client = std::make_unique<tamlog_client>(chosen).release();
    return TAMLOG_OK;
  });
}

void TAMLOG_CALL tamlog_client_close(tamlog_client* client) {
  const std::unique_ptr<tamlog_client> owned(client);
}

tamlog_status TAMLOG_CALL tamlog_client_disconnect(tamlog_client* client) {
  return Ask(client, [](LogClient& asked) {
    asked.Disconnect();
    return Status::Ok;
  });
}

tamlog_status TAMLOG_CALL tamlog_client_ping(tamlog_client* client) {
  return Ask(client, [](LogClient& asked) { return asked.Ping(); });
}

tamlog_status TAMLOG_CALL tamlog_client_submit(tamlog_client* client, const tamlog_entry* entry) {
  tamlog_entry given;
  if (entry == nullptr || !TamLogClient::CopyIn(entry, given)) return TAMLOG_BAD_ARGUMENT;
  return Ask(client, [&](LogClient& asked) {
    const std::string_view source = TamLogClient::SourceOf(given);
    const std::string_view text = TamLogClient::TextOf(given);
    if (source.size() >= kTextSize || text.size() >= kTextSize) return Status::TooLong;
    LogMessageBody body{};
    if (!TamLogClient::FillTexts(source, text, body)) return Status::BadValue;
    const auto words = TamLogClient::WordsOfTime(given.time);
    TamLogClient::SetTime(body, words == TamLogClient::TimeWords{} ? TamLogClient::LocalNow() : words);
    body.type = given.type;
    std::memcpy(body.origin, given.origin, sizeof(body.origin));
    std::memcpy(body.tail, given.tail, sizeof(body.tail));
    return asked.Submit(body);
  });
}

tamlog_status TAMLOG_CALL tamlog_client_get_settings(tamlog_client* client, tamlog_settings* settings) {
  if (!TamLogClient::CanReceive(settings)) return TAMLOG_BAD_ARGUMENT;
  return Ask(client, [&](LogClient& asked) {
    SettingsBody body{};
    const Status status = asked.GetSettings(body);
    if (status == Status::Ok) {
      const tamlog_settings result{0, body.maxMessage, body.devicePollRate, body.typeFilter, body.saveRate};
      TamLogClient::CopyOut(result, settings);
    }
    return status;
  });
}

tamlog_status TAMLOG_CALL tamlog_client_set_settings(tamlog_client* client, const tamlog_settings* settings) {
  tamlog_settings given;
  if (settings == nullptr || !TamLogClient::CopyIn(settings, given)) return TAMLOG_BAD_ARGUMENT;
  return Ask(client, [&](LogClient& asked) {
    return asked.SetSettings({given.capacity, given.poll_rate_ms, given.types, given.save_rate_s});
  });
}

tamlog_status TAMLOG_CALL tamlog_client_get_filter(tamlog_client* client, uint32_t index,
                                                   tamlog_filter* filter) {
  if (!TamLogClient::CanReceive(filter)) return TAMLOG_BAD_ARGUMENT;
  return Ask(client, [&](LogClient& asked) {
    TamLogClient::FilterEntry entry;
    const Status status = asked.GetFilter(index, entry);
    if (status != Status::Ok) return status;
    tamlog_filter result{};
    result.include = entry.include ? 1 : 0;
    if (entry.text.size() >= sizeof(result.text)) return Status::TooLong;
    entry.text.copy(result.text, entry.text.size());
    TamLogClient::CopyOut(result, filter);
    return status;
  });
}

tamlog_status TAMLOG_CALL tamlog_client_add_filter(tamlog_client* client, const tamlog_filter* filter) {
  tamlog_filter given;
  if (filter == nullptr || !TamLogClient::CopyIn(filter, given)) return TAMLOG_BAD_ARGUMENT;
  return Ask(client, [&](LogClient& asked) {
    const std::string_view whole(given.text, sizeof(given.text));
    const std::size_t length = whole.find('\0');
    if (length == std::string_view::npos) return Status::TooLong;
    return asked.AddFilter({std::string(whole.substr(0, length)), given.include != 0});
  });
}

tamlog_status TAMLOG_CALL tamlog_client_clear_filters(tamlog_client* client) {
  return Ask(client, [](LogClient& asked) { return asked.ClearFilters(); });
}

tamlog_status TAMLOG_CALL tamlog_client_get_log_file(tamlog_client* client, char* buffer, uint64_t capacity,
                                                     uint64_t* length) {
  return AskPath(client, &LogClient::GetLogFile, buffer, capacity, length);
}

tamlog_status TAMLOG_CALL tamlog_client_get_default_log_file(tamlog_client* client, char* buffer,
                                                             uint64_t capacity, uint64_t* length) {
  return AskPath(client, &LogClient::GetDefaultLogFile, buffer, capacity, length);
}

tamlog_status TAMLOG_CALL tamlog_client_set_log_file(tamlog_client* client, const char* path) {
  if (path == nullptr) return TAMLOG_BAD_ARGUMENT;
  return Ask(client, [&](LogClient& asked) { return asked.SetLogFile(path); });
}

tamlog_status TAMLOG_CALL tamlog_client_clear_log(tamlog_client* client) {
  return Ask(client, [](LogClient& asked) { return asked.ClearLog(); });
}
