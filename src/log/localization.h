/// Puts arguments into log texts.
#pragma once

#include <initializer_list>
#include <string>

namespace loc {

/// Replaces every "{i}" in format by args[i]; a placeholder without an argument stays. The search starts
/// anew after each replacement, so an argument that contains its own placeholder never finishes: pass
/// numbers and own texts only.
std::string al(const char* format, std::initializer_list<const char*> args);
std::string al(const char* format);

/// The frame of a message catalogue. There is none yet: init leaves everything as it was.
void init(const char* file, int language);
void close();

}  // namespace loc
