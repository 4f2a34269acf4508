#pragma once

// The pipes of foreign_server: one thread accepts connections, and one serves each of them.

#include <array>
#include <atomic>
#include <functional>
#include <list>
#include <thread>

#include "conformance/log_layout.h"
#include "util/win32.h"

using PipeRecord = std::array<char, TAMLOG_RECORD_SIZE>;

class ForeignPipes {
 public:
  using Breaks = std::function<bool(const char*)>;
  using Answer = std::function<PipeRecord(const PipeRecord&)>;

  // Has a pair of pipes when it returns; accepts connections until its end, which ends them all.
  // `answering` is called from many threads.
  ForeignPipes(Breaks rule, Answer answering);
  ~ForeignPipes();
  ForeignPipes(const ForeignPipes&) = delete;
  ForeignPipes& operator=(const ForeignPipes&) = delete;

 private:
  struct Pair {
    HANDLE request = INVALID_HANDLE_VALUE;
    HANDLE reply = INVALID_HANDLE_VALUE;
  };

  Pair MakePair() const;
  static void Close(const Pair& pair);
  // Waits for the client of each pair, beginning with `pair`.
  void Accept(Pair pair);
  bool IsConnected(HANDLE pipe) const;
  void Serve(Pair pair);
  // The number of bytes of one request; -1: the connection is over.
  int ReadRequest(const Pair& pair, PipeRecord& request, bool& tooLong);
  bool Reply(const Pair& pair, const PipeRecord& reply);
  bool ReplyCode(const Pair& pair, std::uint32_t code);
  // The error of an operation that was started; the wait ends after `limit` ms, or with the server.
  DWORD Finish(HANDLE pipe, OVERLAPPED& overlapped, BOOL started, DWORD limit, DWORD& moved) const;

  Breaks breaks;
  Answer answer;
  HANDLE ended;
  std::list<std::thread> connections;
  std::thread acceptor;
};
