#include "gentl/Note.h"

#include <algorithm>
#include <iostream>

namespace Tool {

std::string Printable(std::string text)
{
    std::replace_if(
        text.begin(), text.end(),
        [](char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t') || c == 0x7F; },
        '.');
    return text;
}

void Note(const std::string& text)
{
    std::cerr << Printable("gentl: " + text + "\n") << std::flush;
}

}  // namespace Tool
