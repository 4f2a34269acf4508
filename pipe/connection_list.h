#pragma once

// The connections of one listener, and the one place where it is decided who destroys a connection: its own
// thread, which is the rule, or the listener's destructor, for a thread that does not come to an end.
//
// Shared by the listener and its connections, because a connection may still be on its last steps when the
// listener is destroyed. `lock` guards everything. It is held while connections are started, stopped and
// ended by force, so that none of them can be destroyed meanwhile; of other locks only those of the
// connection's Thread base are taken under it, and a thread never holds one of these when it comes here.

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

  // Appends the connection and starts it; from then on it destroys itself. When it cannot be started it is
  // destroyed here and the exception goes on.
  void AddAndStart(std::unique_ptr<PipeServerHandleThread> connection) EXCLUDES(lock);
  // Nothing when the connection is not listed.
  void Remove(PipeServerHandleThread* connection) EXCLUDES(lock);
  bool IsEmpty() EXCLUDES(lock);
  // Asks every listed connection to stop.
  void StopAll() EXCLUDES(lock);

  // The last thing a connection's thread does with the connection before it destroys it. Does not return when
  // EndAll took the connection over: the thread is about to be ended.
  void Leave(PipeServerHandleThread* connection) EXCLUDES(lock);
  // Ends the threads of all listed connections by force, destroys the connections and empties the list.
  void EndAll() EXCLUDES(lock);

 private:
  bool LeaveUnlessTakenOver(PipeServerHandleThread* connection) EXCLUDES(lock);

  TamLogUtil::LeafLock lock;
  std::list<PipeServerHandleThread*> connections GUARDED_BY(lock);
  std::set<PipeServerHandleThread*> takenOver GUARDED_BY(lock);
};
