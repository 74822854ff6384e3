/// What the user should know while a command goes on.
#pragma once

#include <string>
#include <string_view>

namespace Tool {

/// What a text of several lines keeps.
inline constexpr std::string_view kLayout = "\n\t";

/// The text with all control characters but those kept as dots: what cameras and other programs say must not
/// steer the terminal.
std::string Printable(std::string text, std::string_view kept = {});

/// Writes to the standard error stream, as whole lines, from any thread.
void Note(const std::string& text);

}  // namespace Tool
