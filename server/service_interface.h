#pragma once

// What the service object is to the rest of the server: the handler of every pipe request and the receiver of
// every timer tick.

#include "pipe/message_handler.h"
#include "util/timer.h"

class ServiceInterface : public PipeServerMessageHandler, public TamLogUtil::TimerCallback {};
