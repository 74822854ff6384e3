#include "modules/FileUtility.h"

#include "frame/Error.h"
#include "frame/PortableUtil.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <iostream>

namespace GenTL {
namespace {

std::string GetCurrentDir()
{
    char path[4096];
    return getcwd(path, sizeof path) != nullptr ? std::string(path) + "/" : "undefined";
}

}  // namespace

std::string GetGenTLFilePath()
{
    Dl_info info{};
    // dladdr answers 0 on failure.
    const int found = dladdr(reinterpret_cast<const void*>(&GCInitLib), &info);
    if (found == 0 || info.dli_fname == nullptr) {
        std::cerr << "anonymous::GetGenTLFilePath dladdr returned err code: " << found << std::endl;
        return "undefined";
    }
    return info.dli_fname;
}

std::string GetGenTLFileName()
{
    constexpr const char* kName = "libgentl";
    try {
        const std::string path = GetGenTLFilePath();
        const std::size_t at = path.find(kName);
        if (at != std::string::npos) {
            return path.substr(at);
        }
    } catch (const std::exception&) {
        // As if the name did not occur.
    }
    return "libgentl.so";
}

std::string GetGenTLDirPath()
{
    return GetCurrentDir();
}

// By value: the exported name says so.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int GetGenTLPortURL(std::string fileName, char* sURL, size_t* piSize)
{
    if (piSize == nullptr) {
        return Store(GC_ERR_INVALID_PARAMETER);
    }
    const std::string url = "file:" + GetGenTLDirPath() + "xml" + "/" + fileName + "?SchemaVersion=1.0.0";
    const size_t needed = url.size() + 1;
    if (sURL == nullptr) {
        *piSize = needed;
        return GC_ERR_SUCCESS;
    }
    if (*piSize < needed) {
        *piSize = needed;
        return Store(GC_ERR_BUFFER_TOO_SMALL);
    }
    std::memset(sURL, 0, *piSize);
    memcpy_portable(sURL, *piSize, url.c_str(), needed);
    *piSize = needed;
    return GC_ERR_SUCCESS;
}

void KeepLibraryLoaded()
{
    dlopen(GetGenTLFilePath().c_str(), RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

}  // namespace GenTL
