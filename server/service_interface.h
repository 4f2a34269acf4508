#pragma once

// The interface of the service object to pipes and timers: the handler of every pipe request and the callback
// of every timer.

#include "pipe/message_handler.h"
#include "util/timer.h"

class ServiceInterface : public PipeServerMessageHandler, public TamLogUtil::TimerCallback {};
