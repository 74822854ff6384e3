#include "gentl/Files.h"

#include "gentl/Failure.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace Tool {

std::string ReadFile(const std::filesystem::path& path)
{
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (!in) {
        throw Failure("can't read " + path.string() + ": " + std::strerror(errno));
    }
    return text;
}

void WriteFile(const std::filesystem::path& path, const void* pData, std::size_t size)
{
    errno = 0;
    std::ofstream out(path, std::ios::binary);
    out.write(static_cast<const char*>(pData), static_cast<std::streamsize>(size));
    out.close();
    if (!out) {
        throw Failure("can't write " + path.string() + ": " + std::strerror(errno));
    }
}

}  // namespace Tool
