/// The shared library as a consumer meets it: the names it shows, and names that both own.
#include "LogConfigFile.h"
#include "frame/GenTL.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <string>

// A program may own these names too; the library must use its own.
extern "C" {
__attribute__((visibility("default"))) char file[512] = "the program's";
__attribute__((visibility("default"))) bool streamCreated = false;
__attribute__((visibility("default"))) int GCReadPort(void*, std::uint64_t, void*, std::size_t*)
{
    return 4711;
}
__attribute__((visibility("default"))) int IFClose(void*)
{
    return 4711;
}
}

namespace {

std::string Output(const std::string& command)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string text;
    char part[4096];
    for (std::size_t got = 0; (got = fread(part, 1, sizeof part, pipe.get())) != 0;) {
        text.append(part, got);
    }
    return text;
}

TEST(Exports, AreThePublishedNamesAndNoOthers)
{
    std::set<std::string> expected = {
#define NAME(name, parameters) #name,
        GENTL_FUNCTIONS(NAME)
#undef NAME
            "_ZN5GenTL9IFForceIpEPvmjjj",
        "_ZN5GenTL19DSWaitForNextLeaderEPvm",
        "_ZN5GenTL24DSResetWaitForNextLeaderEPv",
        "_ZN5GenTL24DSSetupResendRetryParamsEPvmdPKcS2_",
        "_ZN5GenTL14AllocateHandleEPPvPNS_11IBaseModuleE",
        "_ZN5GenTL11CheckHandleEPv",
        "_ZN5GenTL20CastHandleToIBasePtrEPv",
        "_ZN5GenTL10CastHandleEPv",
        "_ZN5GenTL22CastHandleToIBufferPtrEPv",
        "_ZN5GenTL21CastHandleToBufferPtrEPv",
        "_ZN5GenTL12DeleteHandleEPv",
        "_ZN5GenTL16GetGenTLFilePathB5cxx11Ev",
        "_ZN5GenTL16GetGenTLFileNameB5cxx11Ev",
        "_ZN5GenTL15GetGenTLDirPathB5cxx11Ev",
        "_ZN5GenTL15GetGenTLPortURLENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEPcPm",
        "file",
        "streamCreated",
    };
    std::istringstream names(Output("nm -D --defined-only --format=just-symbols " GENTL_LIBRARY));
    int bufferHelpers = 0;
    for (std::string name; names >> name;) {
        if (name.find("_ZN5GenTL13BufferUtility") == 0) {
            ++bufferHelpers;
            continue;
        }
        EXPECT_EQ(1U, expected.erase(name)) << name << " is exported";
    }
    EXPECT_LT(0, bufferHelpers);
    for (const std::string& name : expected) {
        ADD_FAILURE() << name << " is not exported";
    }
}

// A static object of the program's may close its camera last: the library's own are destroyed by then.
void UseAtExit()
{
    void* library = dlopen(GENTL_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    const auto initLib = reinterpret_cast<GenTL::PGCInitLib>(dlsym(library, "GCInitLib"));
    const auto closeLib = reinterpret_cast<GenTL::PGCCloseLib>(dlsym(library, "GCCloseLib"));
    const auto open = reinterpret_cast<GenTL::PTLOpen>(dlsym(library, "TLOpen"));
    const auto update =
        reinterpret_cast<GenTL::PTLUpdateInterfaceList>(dlsym(library, "TLUpdateInterfaceList"));
    const auto close = reinterpret_cast<GenTL::PTLClose>(dlsym(library, "TLClose"));
    void* hSystem = nullptr;
    const bool works = initLib() == 0 && open(&hSystem) == 0 && update(hSystem, nullptr, 100) == 0 &&
                       close(hSystem) == 0 && closeLib() == 0;
    _exit(works ? 0 : 1);
}

TEST(Exports, WorkWhileTheProcessEnds)
{
    WriteLogConfig();
    const auto loadAndEnd = [] {
        std::atexit(UseAtExit);
        dlopen(GENTL_LIBRARY, RTLD_NOW);
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): the only thread
    };
    EXPECT_EXIT(loadAndEnd(), testing::ExitedWithCode(0), "");
}

TEST(Exports, BindInsideTheLibrary)
{
    WriteLogConfig();
    void* library = dlopen(GENTL_LIBRARY, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(nullptr, library) << dlerror();
    const auto initLib = reinterpret_cast<GenTL::PGCInitLib>(dlsym(library, "GCInitLib"));
    const auto readPort = reinterpret_cast<GenTL::PGCReadPort>(dlsym(library, "GCReadPort"));
    const auto closeLib = reinterpret_cast<GenTL::PGCCloseLib>(dlsym(library, "GCCloseLib"));
    const auto* itsFlag = static_cast<bool*>(dlsym(library, "streamCreated"));
    ASSERT_EQ(0, initLib());
    EXPECT_EQ(-1006, readPort(nullptr, 0, nullptr, nullptr));
    EXPECT_TRUE(*itsFlag);
    EXPECT_FALSE(streamCreated);
    EXPECT_STREQ("the program's", file);
    EXPECT_EQ(0, closeLib());
    // Stays loaded: what the library keeps for the life of the process is found from its own variables.
}

}  // namespace
