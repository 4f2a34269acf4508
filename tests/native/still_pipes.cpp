// A pipe server without pipes: requests come when the caller calls HandleMessage.

#include "pipe/connection.h"
#include "pipe/overlap.h"
#include "pipe/pipe_server.h"

struct _OVERLAPPED {};

Overlap::Overlap() : overlapped(std::make_unique<_OVERLAPPED>()) {}
Overlap::~Overlap() = default;
void Overlap::Cancel() {}

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

PipeServerHandleThread::~PipeServerHandleThread() = default;
void PipeServerHandleThread::Stop() {}
std::uint32_t PipeServerHandleThread::Run() {
  return 0;
}
