#pragma once

// The only file that includes windows.h. Sources include it, headers never, so that its macros reach no
// further than the sources that call the system.

#include <windows.h>

// A macro of windows.h that would rename ExceptionBase::GetMessage.
#undef GetMessage
