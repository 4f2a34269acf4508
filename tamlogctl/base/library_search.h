#pragma once

namespace TamLogCtl {

// Lets the system load libraries from its own directory only, from now on. Otherwise a library of the right
// name next to the program, which may lie in a directory of downloads, would run with the rights of its user.
// Before Windows 8 this needs an update (KB2533623); without it nothing changes.
void LoadLibrariesOfTheSystemOnly();

}  // namespace TamLogCtl
