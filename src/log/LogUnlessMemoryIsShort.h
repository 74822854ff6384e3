/// A last word where nothing may be thrown.
#pragma once

namespace GenTL {

/// Logs an error where an exception, which is for want of memory, must not follow another. Doesn't throw.
void LogUnlessMemoryIsShort(const char* text);

}  // namespace GenTL
