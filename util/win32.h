#pragma once

// The one way windows.h comes in: included by source files only, never by headers, so that its macros reach
// no further than the file that calls the system.

#include <windows.h>

// A macro of windows.h that would rename ExceptionBase::GetMessage in files that include this header.
#undef GetMessage
