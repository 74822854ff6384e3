#include "gentl/Note.h"

#include <iostream>

namespace Tool {

std::string Printable(std::string text, std::string_view kept)
{
    constexpr unsigned char kFirstOfTwo = 0xC2;  // U+0080 to U+009F are control characters, too
    unsigned char previous = 0;
    for (char& character : text) {
        const auto c = static_cast<unsigned char>(character);
        const bool isSecond = previous == kFirstOfTwo && c >= 0x80 && c < 0xA0;
        const bool isControl = c < 0x20 || c == 0x7F || isSecond;
        if (isControl && kept.find(character) == std::string_view::npos) {
            character = '.';
        }
        previous = c;
    }
    return text;
}

void Note(const std::string& text)
{
    std::cerr << Printable("gentl: " + text + "\n", kLayout) << std::flush;
}

}  // namespace Tool
