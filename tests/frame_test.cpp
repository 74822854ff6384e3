/// The life of the library and the frame that every call passes, seen through the exported functions.
#include "LogConfigFile.h"
#include "frame/GenTL.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

using namespace GenTL;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

struct LastError
{
    GC_ERROR code = 1;
    std::string text;
};

LastError TakeLastError()
{
    LastError e;
    std::size_t size = 0;
    EXPECT_EQ(0, GCGetLastError(&e.code, nullptr, &size));
    std::vector<char> text(size);
    EXPECT_EQ(0, GCGetLastError(&e.code, text.data(), &size));
    e.text = text.data();
    return e;
}

class Frame : public testing::Test
{
protected:
    void SetUp() override
    {
        WriteLogConfig();
        ASSERT_EQ(0, GCInitLib());
        ASSERT_EQ(0, TLOpen(&m_hTL));
    }
    void TearDown() override
    {
        if (m_hTL != nullptr) {
            EXPECT_EQ(0, TLClose(m_hTL));
        }
        EXPECT_EQ(0, GCCloseLib());
    }

    TL_HANDLE m_hTL = nullptr;
};

TEST(FrameLife, NothingWorksBeforeInit)
{
    WriteLogConfig();
    GC_ERROR code = 7;
    std::size_t size = 0;
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, GCGetLastError(&code, nullptr, &size));
    EXPECT_EQ(7, code);
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, GCCloseLib());
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, TLOpen(nullptr));
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, DevClose(nullptr));
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, DSGetBufferChunkData(nullptr, nullptr, nullptr, nullptr));

    // The error of the time before becomes readable with the first life.
    ASSERT_EQ(0, GCInitLib());
    const LastError before = TakeLastError();
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, before.code);
    EXPECT_THAT(before.text, MatchesRegex("Error Stack:\n  -1003 GenTL::GC_ERR_NOT_IMPLEMENTED\\(-1003\\) :\n"
                                          "      DSGetBufferChunkData\\(\\):[0-9]+: "
                                          "GenTL::GC_ERR_NOT_IMPLEMENTED\\(-1003\\)\n"));
    EXPECT_EQ("No Error", TakeLastError().text);

    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, GCInitLib());
    EXPECT_THAT(TakeLastError().text,
                HasSubstr(": every call to GenTL::GCInitLib() must be matched with a call to "
                          "GenTL::GCCloseLib() before calling GenTL::GCInitLib() again\n"));
    EXPECT_EQ(0, GCCloseLib());
    EXPECT_EQ(GC_ERR_NOT_INITIALIZED, GCCloseLib());
}

TEST(FrameLife, MissingConfigurationLeavesByException)
{
    std::remove("norvo_log.conf");
    EXPECT_THROW(GCInitLib(), std::logic_error);
    WriteLogConfig();
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, GCInitLib());  // the life has begun all the same
    EXPECT_EQ(0, GCCloseLib());
}

TEST_F(Frame, OneSystemAtATime)
{
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, TLOpen(nullptr));
    TL_HANDLE second = nullptr;
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, TLOpen(&second));
    std::uint32_t count = 0;
    EXPECT_EQ(0, TLGetNumInterfaces(m_hTL, &count));

    // A handle of an earlier life is refused and not freed.
    ASSERT_EQ(0, GCCloseLib());
    ASSERT_EQ(0, GCInitLib());
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, TLClose(m_hTL));
    EXPECT_THAT(TakeLastError().text,
                HasSubstr(": GenTL::TLOpen() must be called before calling GenTL::TLClose()\n"));
    TL_HANDLE fresh = nullptr;
    ASSERT_EQ(0, TLOpen(&fresh));
    EXPECT_EQ(0, TLClose(m_hTL));  // the flag is the library's, not the handle's
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, TLClose(m_hTL));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, TLClose(fresh));
    m_hTL = nullptr;
}

// What a wrong handle leaves in the stack differs by the family of the function.
TEST_F(Frame, WrongHandles)
{
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, GCReadPort(nullptr, 0, nullptr, nullptr));
    EXPECT_THAT(TakeLastError().text,
                MatchesRegex("Error Stack:\n  -1006 [^\n]* :\n      GCReadPort\\(\\):[0-9]+: "
                             "GenTL::GC_ERR_INVALID_HANDLE\\(-1006\\)\n  -1006 [^\n]* :\n[^\n]*\n"));

    EXPECT_EQ(GC_ERR_INVALID_HANDLE, IFClose(m_hTL));
    EXPECT_THAT(TakeLastError().text, HasSubstr(": failed to cast hIface to IInterface*\n"));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, DevClose(m_hTL));
    EXPECT_EQ("Error Stack:\n  -1006 GenTL::GC_ERR_INVALID_HANDLE(-1006) :\n      Invalid Handle\n",
              TakeLastError().text);
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, DSQueueBuffer(m_hTL, m_hTL));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, DSSetupResendRetryParams(m_hTL, 1, 1, "", ""));

    const std::string noHandle = "a consumer's own memory";
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, TLClose(const_cast<char*>(noHandle.data())));
    EXPECT_EQ(GC_ERR_INVALID_HANDLE, EventKill(m_hTL));

    // What fails behind a good handle gets the name of a system function on top.
    EXPECT_EQ(GC_ERR_INVALID_ID, TLGetInterfaceInfo(m_hTL, "abc", 0, nullptr, nullptr, nullptr));
    EXPECT_THAT(TakeLastError().text,
                MatchesRegex("Error Stack:\n  -1007 [^\n]* :\n      TLGetInterfaceInfo\\(\\):[0-9]+: "
                             "GenTL::GC_ERR_INVALID_ID\\(-1007\\)\n  -1007 [^\n]* :\n[^\n]*\n"));
}

TEST_F(Frame, ErrorTextIsReadOnceAndWhole)
{
    ASSERT_EQ(GC_ERR_RESOURCE_IN_USE, GCInitLib());
    GC_ERROR code = 0;
    std::size_t needed = 0;
    ASSERT_EQ(0, GCGetLastError(&code, nullptr, &needed));
    std::vector<char> text(needed + 8, 'x');
    std::size_t size = needed - 1;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, GCGetLastError(&code, text.data(), &size));
    EXPECT_EQ(needed - 1, size);
    EXPECT_EQ('x', text[0]);
    size = text.size();
    EXPECT_EQ(0, GCGetLastError(&code, text.data(), &size));
    EXPECT_EQ(GC_ERR_RESOURCE_IN_USE, code);
    EXPECT_EQ(needed, size);
    EXPECT_TRUE(std::all_of(text.begin() + static_cast<std::ptrdiff_t>(needed), text.end(),
                            [](char c) { return c == 0; }));
    EXPECT_EQ("No Error", TakeLastError().text);
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, GCGetLastError(nullptr, nullptr, &size));
    size = 8;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, GCGetLastError(&code, text.data(), &size));
    EXPECT_EQ(0, code);
}

}  // namespace
