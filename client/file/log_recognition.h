#pragma once

// Decides whether a file is a log at all. The format has no magic number, so a log is recognised by a header
// that fits the file's size, by a header that only a server writes, or by its messages. Files that were
// damaged, cut or joined are still logs.

#include <string>

#include "client/file/log_file_image.h"

namespace TamLogClient {

// Returns why the file is not a log, for example "it begins like gzip"; empty when it is one. Without a
// header the whole file is searched for a message.
std::string WhyNoLog(const LogFileImage& image);

}  // namespace TamLogClient
