// A listener without a thread, for callers that call HandleMessage themselves.

#include "pipe/pipe_server.h"

PipeServer::PipeServer(const std::string& name)
    : Thread("Pipe Server"), requestPipeName(name), connections(std::make_shared<ConnectionList>()) {}
PipeServer::~PipeServer() = default;
void PipeServer::SetMessageHandler(PipeServerMessageHandler* handler) {
  messageHandler = handler;
}
void PipeServer::Start() {}
void PipeServer::Stop() {}
bool PipeServer::Join(TamLogUtil::Timeout& /*timeout*/) {
  return true;
}
std::uint32_t PipeServer::Run() {
  return 0;
}
void PipeServer::ReleaseConnection(PipeServerHandleThread* /*connection*/) {}
