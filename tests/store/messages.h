#pragma once

// The messages of tests/support/messages.h, by their names alone within the tests of the store.

#include "tests/support/messages.h"

namespace StoreTest {

using TestSupport::At;
using TestSupport::CopyText;
using TestSupport::From;
using TestSupport::Message;
using TestSupport::Moment;
using TestSupport::OfType;
using TestSupport::TextOf;

}  // namespace StoreTest
