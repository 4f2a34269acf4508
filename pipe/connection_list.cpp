#include "pipe/connection_list.h"

#include "pipe/connection.h"
#include "util/clock.h"
#include "util/exceptions.h"
#include "util/timeout.h"

using TamLogUtil::LeafLock;
using TamLogUtil::Exceptions::ExceptionBase;

ConnectionList::ConnectionList() = default;
ConnectionList::~ConnectionList() = default;

void ConnectionList::AddAndStart(std::unique_ptr<PipeServerHandleThread> connection) {
  const LeafLock::Guard guard(lock);
  connections.push_back(connection.get());
  try {
    connection->Start();
  } catch (...) {
    connections.pop_back();
    throw;
  }
  // The thread cannot have destroyed the connection yet: it has to call Leave first.
  static_cast<void>(connection.release());
}

void ConnectionList::Remove(PipeServerHandleThread* connection) {
  const LeafLock::Guard guard(lock);
  connections.remove(connection);
}

bool ConnectionList::IsEmpty() {
  const LeafLock::Guard guard(lock);
  return connections.empty();
}

void ConnectionList::StopAll() {
  const LeafLock::Guard guard(lock);
  for (PipeServerHandleThread* connection : connections) connection->Stop();
}

void ConnectionList::Leave(PipeServerHandleThread* connection) {
  if (LeaveUnlessTakenOver(connection)) return;
  TamLogUtil::SleepFor(TamLogUtil::Timeout::kForever);
}

bool ConnectionList::LeaveUnlessTakenOver(PipeServerHandleThread* connection) {
  const LeafLock::Guard guard(lock);
  if (takenOver.contains(connection)) return false;
  connections.remove(connection);
  return true;
}

void ConnectionList::EndAll() {
  std::list<PipeServerHandleThread*> ended;
  {
    const LeafLock::Guard guard(lock);
    ended.swap(connections);
    takenOver.insert(ended.begin(), ended.end());
    // Under the lock, so that no thread is terminated while it holds the lock.
    for (PipeServerHandleThread* connection : ended) {
      try {
        connection->Terminate(1);
      } catch (const ExceptionBase&) {
        // It has already ended.
      }
    }
  }
  for (PipeServerHandleThread* connection : ended) delete connection;
  const LeafLock::Guard guard(lock);
  for (PipeServerHandleThread* connection : ended) takenOver.erase(connection);
}
