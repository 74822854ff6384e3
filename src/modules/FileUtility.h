/// Where the library's own file lies, the URL of a description beside it, and how to keep it in memory.
#pragma once

#include "frame/GenTL.h"

#include <string>

namespace GenTL {

/// The path by which the library was loaded; "undefined" when the loader can't tell.
GENTL_API std::string GetGenTLFilePath();
/// The path from its first "libgentl" on; "libgentl.so" when that doesn't occur.
GENTL_API std::string GetGenTLFileName();
/// The current working directory with a "/" behind it, whatever the name says; "undefined" on failure.
GENTL_API std::string GetGenTLDirPath();
/// The "file:" URL of a description fileName in the folder "xml". Sizes in bytes with terminator; on
/// GC_ERR_BUFFER_TOO_SMALL *piSize is set to what is needed.
GENTL_API int GetGenTLPortURL(std::string fileName, char* sURL, size_t* piSize);

/// Threads of the library are left behind: it is to stay in memory for them, whoever unloads it.
void KeepLibraryLoaded();

}  // namespace GenTL
