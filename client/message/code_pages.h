#pragma once

// The upper halves of the single-byte encodings that are known everywhere, Windows or not. A 0 stands for a
// byte that the encoding leaves undefined.

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
