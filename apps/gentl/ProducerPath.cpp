#include "gentl/ProducerPath.h"

#include "gentl/Failure.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace Tool {
namespace {

namespace fs = std::filesystem;

constexpr char kSearchVariable[] = "GENICAM_GENTL64_PATH";

/// Seen from the folder of this program: the build tree, then the installed layout.
constexpr const char* kOwnLibrary[] = {"libgentl.so", "../libgentl.so",
                                       "../" TOOL_INSTALL_LIBDIR "/gentl/libgentl.so",
                                       "../lib/gentl/libgentl.so"};

/// All *.cti in the folders of the variable, folder by folder.
std::vector<fs::path> Installed()
{
    const char* folders = std::getenv(kSearchVariable);
    std::istringstream list(folders != nullptr ? folders : "");
    std::vector<fs::path> found;
    for (std::string folder; std::getline(list, folder, ':');) {
        const auto begin = static_cast<std::ptrdiff_t>(found.size());
        std::error_code ignored;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, ignored)) {
            if (entry.path().extension() == ".cti") {
                found.push_back(entry.path());
            }
        }
        std::sort(found.begin() + begin, found.end());
    }
    return found;
}

/// Empty when there is none.
fs::path Own()
{
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    for (const char* candidate : kOwnLibrary) {
        fs::path path = (program.parent_path() / candidate).lexically_normal();
        if (fs::exists(path, error)) {
            return path;
        }
    }
    return {};
}

}  // namespace

fs::path FindProducer(const std::string& given)
{
    std::error_code error;
    if (fs::path(given).has_parent_path() || fs::exists(given, error)) {
        return fs::absolute(given);  // a bare name would be looked up in the system's library folders
    }
    if (fs::path own = Own(); given.empty() && !own.empty()) {
        return own;
    }
    for (const fs::path& path : Installed()) {
        if (given.empty() || path.filename() == given) {
            return path;
        }
    }
    throw Failure(
        given.empty() ? "no libgentl.so beside this program, and no *.cti in the folders of " +
                            std::string(kSearchVariable)
                      : "no " + given + " here nor in the folders of " + kSearchVariable,
        std::string("Name a producer with --producer FILE, or its folder in ") + kSearchVariable + ".");
}

}  // namespace Tool
