#include "client/message/message_body.h"

#include <cstring>

namespace TamLogClient {

namespace {

bool FillField(std::string_view text, char (&field)[kTextSize]) {
  std::memset(field, 0, sizeof(field));
  std::memcpy(field, text.data(), text.size());
  return true;
}

bool Fits(std::string_view text) {
  return text.size() < kTextSize && text.find('\0') == std::string_view::npos;
}

}  // namespace

bool FillTexts(std::string_view source, std::string_view text, LogMessageBody& body) {
  return Fits(source) && Fits(text) && FillField(source, body.source) && FillField(text, body.text);
}

}  // namespace TamLogClient
