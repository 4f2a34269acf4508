#pragma once

// Which messages the server keeps, by their type and by the name of their sender.

#include "records/log_file_format.h"
#include "store/server_configuration.h"

// Whether `body` is to be stored. In this order:
//  1. a message whose type is switched off is dropped, and so is one of a type that has no switch (4 and
//  more):
//     stored, it would break the file's integrity rules and cost every message at the next start;
//  2. with include filters, only messages whose source matches one of them are kept;
//  3. otherwise messages whose source matches an exclude filter are dropped.
// A source matches a filter when, without regard to letter case, the shorter of the two is the beginning of
// the longer one. A source without a terminating zero ends with its field. The text is never looked at.
//
// The caller holds the configuration's lock.
bool IsMessageKept(const ServerConfiguration& configuration, const LogMessageBody& body);
