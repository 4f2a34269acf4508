#include "client/live/log_client_transport.h"

namespace TamLogClient {

namespace {

class LogClientTransport : public SenderTransport {
 public:
  explicit LogClientTransport(const LogClientOptions& options) : client(options) {}
  Status Submit(const LogMessageBody& message, bool& left) override { return client.Submit(message, left); }
  Status Ping() override { return client.Ping(); }
  void Disconnect() override { client.Disconnect(); }

 private:
  LogClient client;
};

}  // namespace

std::unique_ptr<SenderTransport> MakeLogClientTransport(const LogClientOptions& options) {
  return std::make_unique<LogClientTransport>(options);
}

}  // namespace TamLogClient
