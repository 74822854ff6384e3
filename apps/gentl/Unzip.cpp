#include "gentl/Unzip.h"

#include "gentl/Failure.h"

#include <zip.h>

#include <cstdint>
#include <memory>

namespace Tool {
namespace {

constexpr char kSignature[] = {'P', 'K', 3, 4};
constexpr std::uint64_t kLongestText = 64u << 20;

Failure Damaged()
{
    return Failure("the camera's description is a zip archive that can't be read",
                   "Save it with --save-description FILE, repair it and give it with --description FILE.");
}

}  // namespace

std::string Unzipped(const std::string& bytes)
{
    if (bytes.compare(0, sizeof kSignature, kSignature, sizeof kSignature) != 0) {
        return bytes;
    }
    zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, nullptr);
    if (source == nullptr) {
        throw Damaged();
    }
    const std::unique_ptr<zip_t, void (*)(zip_t*)> archive(zip_open_from_source(source, ZIP_RDONLY, nullptr),
                                                           zip_discard);
    if (archive == nullptr) {
        zip_source_free(source);
        throw Damaged();
    }
    zip_stat_t about;
    const std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> file(zip_fopen_index(archive.get(), 0, 0),
                                                                 zip_fclose);
    if (file == nullptr || zip_stat_index(archive.get(), 0, 0, &about) != 0 ||
        (about.valid & ZIP_STAT_SIZE) == 0 || about.size > kLongestText) {
        throw Damaged();
    }
    std::string text(about.size, '\0');
    if (zip_fread(file.get(), text.data(), text.size()) != static_cast<zip_int64_t>(text.size())) {
        throw Damaged();
    }
    return text;
}

}  // namespace Tool
