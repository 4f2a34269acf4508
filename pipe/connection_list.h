#pragma once

// The connections of one listener. Decides which thread destroys a connection: normally its own, or the one
// that destroys the listener if the connection's thread does not end.
//
// Shared by the listener and its connections, because a connection may still be finishing when the listener
// is destroyed. `lock` guards everything. It is held while connections are started, stopped and terminated,
// so that none of them can be destroyed meanwhile. Under it only locks of the connection's Thread base are
// taken, and a thread that holds one of those never calls this list.

#include <list>
#include <memory>
#include <set>

#include "util/leaf_lock.h"
#include "util/thread_annotations.h"

class PipeServerHandleThread;

class ConnectionList {
 public:
  ConnectionList();
  ~ConnectionList();
  ConnectionList(const ConnectionList&) = delete;
  ConnectionList& operator=(const ConnectionList&) = delete;

  // Appends the connection and starts it; from then on it destroys itself. If it cannot be started, destroys
  // it and rethrows.
  void AddAndStart(std::unique_ptr<PipeServerHandleThread> connection) EXCLUDES(lock);
  // Does nothing when the connection is not listed.
  void Remove(PipeServerHandleThread* connection) EXCLUDES(lock);
  bool IsEmpty() EXCLUDES(lock);
  // Stops every listed connection.
  void StopAll() EXCLUDES(lock);

  // A connection's thread calls this last before it destroys the connection. Does not return when EndAll has
  // taken the connection over: the thread is about to be terminated.
  void Leave(PipeServerHandleThread* connection) EXCLUDES(lock);
  // Terminates the threads of all listed connections, destroys the connections and empties the list.
  void EndAll() EXCLUDES(lock);

 private:
  bool LeaveUnlessTakenOver(PipeServerHandleThread* connection) EXCLUDES(lock);

  TamLogUtil::LeafLock lock;
  std::list<PipeServerHandleThread*> connections GUARDED_BY(lock);
  std::set<PipeServerHandleThread*> takenOver GUARDED_BY(lock);
};
