#pragma once

// Decides which messages the server keeps, by their type and source.

#include "records/log_file_format.h"
#include "store/server_configuration.h"

// Returns whether `body` is to be stored. In this order:
//  1. a message whose type is switched off is dropped, and so is one of type 4 and above: stored, it would
//     break the file's integrity rules and cost every message at the next start;
//  2. with include filters, only messages whose source matches one of them are kept;
//  3. otherwise messages whose source matches an exclude filter are dropped.
// A source matches a filter when the shorter of the two is a prefix of the longer one, ignoring letter case.
// An unterminated source ends with its field. The text does not matter.
//
// The caller holds the configuration's lock.
bool IsMessageKept(const ServerConfiguration& configuration, const LogMessageBody& body);
