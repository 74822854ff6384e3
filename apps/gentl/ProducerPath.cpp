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

std::vector<fs::path> ProducersIn(const fs::path& folder)
{
    std::vector<fs::path> found;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, ignored)) {
        if (entry.path().extension() == ".cti") {
            found.push_back(entry.path());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

/// Empty when the variable is not set.
fs::path FromVariable()
{
    const char* folders = std::getenv(kSearchVariable);
    if (folders == nullptr || *folders == '\0') {
        return {};
    }
    std::istringstream list(folders);
    for (std::string folder; std::getline(list, folder, ':');) {
        if (const std::vector<fs::path> found = ProducersIn(folder); !found.empty()) {
            return found.front();
        }
    }
    throw Failure(std::string("no *.cti file in the folders of ") + kSearchVariable + " (" + folders + ")",
                  "Unset the variable to take the producer that belongs to this program, or use --producer.");
}

fs::path Own()
{
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    for (const char* candidate : kOwnLibrary) {
        const fs::path path = (program.parent_path() / candidate).lexically_normal();
        if (fs::exists(path, error)) {
            return path;
        }
    }
    throw Failure(
        "no libgentl.so beside this program",
        std::string("Name a producer with --producer FILE or its folder in ") + kSearchVariable + ".");
}

}  // namespace

std::filesystem::path FindProducer(const std::string& given)
{
    if (!given.empty()) {
        return fs::absolute(given);  // a bare name must not be looked up in the system's library folders
    }
    const fs::path named = FromVariable();
    return named.empty() ? Own() : named;
}

}  // namespace Tool
