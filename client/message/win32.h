#pragma once

// The client library's only include of windows.h. Source files include this file, headers never.

#include <windows.h>
