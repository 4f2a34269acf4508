#pragma once

// The bytes 0x80 to 0xFF of the single-byte encodings that this library knows on every operating system. A
// byte that the encoding does not define is 0.

#include "client/message/text_encoding.h"

namespace TamLogClient {

extern const UpperHalf kAscii;
extern const UpperHalf kLatin1;
extern const UpperHalf kWindows1250;
extern const UpperHalf kWindows1251;
extern const UpperHalf kWindows1252;
extern const UpperHalf kCp437;
extern const UpperHalf kCp850;

}  // namespace TamLogClient
