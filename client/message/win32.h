#pragma once

// The client library's one way to windows.h: included by source files only, never by headers.

#include <windows.h>
