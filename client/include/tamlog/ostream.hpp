#pragma once

// A std::ostream that sends each line as a message:
//
//   tamlog::Sender sender;
//   tamlog::Stream log(sender, "Stage", 1);
//   log << "axis " << axis << " homed" << std::endl;
//
// A line is sent at its line end. std::flush alone does nothing; the destructor sends an unfinished line. The
// sender has to live longer than the stream. One thread at a time may use a stream; several streams may share
// a sender. A message that the sender does not accept sets badbit.

#include <ostream>
#include <streambuf>
#include <string>
#include <tamlog.hpp>
#include <utility>

namespace tamlog {

// The buffer of a Stream: collects a line and sends it.
class StreamBuffer : public std::streambuf {
 public:
  StreamBuffer(Sender& target, std::string name, std::uint32_t messageType)
      : sender(&target), source(std::move(name)), type(messageType) {}
  StreamBuffer(const StreamBuffer&) = delete;
  StreamBuffer& operator=(const StreamBuffer&) = delete;
  ~StreamBuffer() override {
    if (!line.empty()) Send();
  }

 protected:
  int_type overflow(int_type character) override {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    const char plain = traits_type::to_char_type(character);
    if (plain != '\n') {
      line += plain;
      return character;
    }
    return Send() ? character : traits_type::eof();
  }

 private:
  bool Send() {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const tamlog_status status = sender->TrySubmit({.type = type, .source = source, .text = line});
    line.clear();
    return status == TAMLOG_OK;
  }

  Sender* sender;
  std::string source;
  std::uint32_t type;
  std::string line;
};

// `source` and `type` are those of all messages of the stream.
class Stream : public std::ostream {
 public:
  Stream(Sender& sender, std::string source, std::uint32_t type = 0)
      : std::ostream(nullptr), buffer(sender, std::move(source), type) {
    rdbuf(&buffer);
  }

 private:
  StreamBuffer buffer;
};

}  // namespace tamlog
