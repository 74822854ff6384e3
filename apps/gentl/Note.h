/// What the user should know while a command goes on.
#pragma once

#include <string>

namespace Tool {

/// The text with all control characters but line ends and tabs as dots: what cameras and other programs say
/// must not steer the terminal.
std::string Printable(std::string text);

/// Writes to the standard error stream, as whole lines, from any thread.
void Note(const std::string& text);

}  // namespace Tool
