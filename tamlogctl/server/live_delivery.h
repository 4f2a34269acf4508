#pragma once

// The running server as the target of a delivery.

#include <cstdint>
#include <string>

#include "client/live/log_client.h"
#include "tamlogctl/server/delivery.h"

namespace TamLogCtl {

class LiveTarget : public DeliveryTarget {
 public:
  // `connected` has to outlive the target. `timeout` bounds each reading of the log, in milliseconds. With
  // `silent` no events are reported.
  LiveTarget(TamLogClient::LogClient& connected, std::uint32_t timeout, bool silent)
      : client(connected), timeoutMs(timeout), quiet(silent) {}

  TamLogClient::Status Submit(const LogMessageBody& message) override { return client.Submit(message); }
  TamLogClient::Status Answers() override;
  void Disconnect() override { client.Disconnect(); }
  std::uint64_t Connections() const override { return client.Connections(); }
  TamLogClient::Status ReadLog(TamLogClient::LogSnapshot& log) override;
  std::uint64_t Now() const override;
  bool Sleep(std::uint32_t milliseconds) override;
  void Report(const std::string& line) override;

 private:
  TamLogClient::LogClient& client;
  std::uint32_t timeoutMs;
  bool quiet;
};

// Requests the settings. A server that is not there is waited for until `retryMs` have passed. Returns the
// exit code, and reports a failure.
int AwaitServer(TamLogClient::LogClient& client, std::uint64_t retryMs, SettingsBody& settings);

}  // namespace TamLogCtl
