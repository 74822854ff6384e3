/// The error stack and the typed info answers: what the consumer reads after a failure.
#include "frame/Error.h"
#include "frame/InfoUtility.h"
#include "frame/PortableUtil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace GenTL;
using testing::EndsWith;
using testing::StartsWith;

namespace {

class ErrorStack : public testing::Test
{
protected:
    void SetUp() override { ErrorCache::ReleaseErrorCache(); }

    static Error Peaked()
    {
        Error e;
        EXPECT_EQ(0, ErrorCache::GetErrorCache()->Peak(e));
        return e;
    }
};

int OpenDevice(const std::string& text)
{
    return Raise(GC_ERR_INVALID_PARAMETER, text);
}

// The prefix names the function that raises, not a helper below it.
TEST_F(ErrorStack, PrefixesTheRaisingFunction)
{
    EXPECT_EQ(-1009, OpenDevice("sDeviceID==nullptr"));
    EXPECT_THAT(Peaked().Message(), StartsWith("OpenDevice():"));
    EXPECT_THAT(Peaked().Message(), EndsWith(": sDeviceID==nullptr"));
}

TEST_F(ErrorStack, RaiseReplacesAndAppendKeeps)
{
    Raise(GC_ERR_IO, "old");
    Raise(GC_ERR_INVALID_ID, "deep");
    EXPECT_EQ(GC_ERR_ABORT, AppendName(GC_ERR_ABORT));
    Error e = Peaked();
    ASSERT_EQ(2U, e.NumErrors());
    int code = 0;
    std::string name, message;
    ASSERT_EQ(0, e.PopError(code, name, message));
    EXPECT_EQ("GenTL::GC_ERR_ABORT(-1012)", name);
    EXPECT_THAT(message, EndsWith("GenTL::GC_ERR_ABORT(-1012)"));
    ASSERT_EQ(0, e.PopError(code, name, message));
    EXPECT_EQ(GC_ERR_INVALID_ID, code);
    EXPECT_EQ(GC_ERR_NO_DATA, e.PopError(code, name, message));
    EXPECT_EQ(GC_ERR_INVALID_ID, code) << "an empty stack leaves the arguments";
}

// A marked failure must not disturb the caller, but joins a stack that tells of a real one.
TEST_F(ErrorStack, IgnorableMarkHidesARaiseAndJoinsAStack)
{
    EXPECT_EQ(0, Raise(GC_ERR_IO, ":IGNORABLE:x"));
    EXPECT_EQ(GC_ERR_IO, Append(GC_ERR_IO, ":IGNORABLE:x"));
    EXPECT_EQ(0, ErrorCache::GetErrorCache()->Count());
    Store(GC_ERR_IO);
    EXPECT_EQ("I//O Error occurred", Peaked().Message());
    Append(GC_ERR_BUSY, ":IGNORABLE:x");
    EXPECT_EQ(2U, Peaked().NumErrors());
}

TEST_F(ErrorStack, BelongsToOneThread)
{
    Raise(GC_ERR_IO, "here");
    std::thread([] {
        Error e;
        EXPECT_EQ(GC_ERR_NO_DATA, ErrorCache::GetErrorCache()->Pop(e));
    }).join();
    EXPECT_EQ(1, ErrorCache::GetErrorCache()->Count());
}

TEST_F(ErrorStack, NamesUnknownCodesByNumber)
{
    const Error e = Error::GenerateError(-5);
    EXPECT_EQ("::-::(-5)", e.CodeName());
    EXPECT_EQ("Unknown error code", e.Message());
    EXPECT_EQ("No Error", Error::GenerateSuccess().Message());
}

TEST(PortableUtil, LooksAtNeitherSizeNorRadix)
{
    char text[32] = {};
    EXPECT_EQ(3, itoa_portable(255, text, 32, 16));
    EXPECT_STREQ("255", text);
    EXPECT_EQ(0, memcpy_portable(text, 1, "abcd", 5));
    EXPECT_STREQ("abcd", text);
}

class InfoAnswers : public ErrorStack
{
protected:
    InfoUtility m_info;
    int m_type = 0;
    unsigned long m_size = 0;
};

// A text answer clears the whole buffer, as string registers need.
TEST_F(InfoAnswers, TextZeroesTheWholeBuffer)
{
    const std::string text = "GEV";
    EXPECT_EQ(0, m_info.SetInfo(text, &m_type, nullptr, &m_size));
    EXPECT_EQ(4U, m_size);
    EXPECT_EQ(INFO_DATATYPE_STRING, m_type);
    char buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), 'x');
    m_size = sizeof buffer;
    EXPECT_EQ(0, m_info.SetInfo(text, &m_type, buffer, &m_size));
    EXPECT_EQ(std::string("GEV\0\0\0\0\0", 8), std::string(buffer, 8));
    EXPECT_EQ(4U, m_size);
}

TEST_F(InfoAnswers, TooSmallKeepsTheSizeAndSaysWhatIsNeeded)
{
    char buffer[8] = {};
    m_size = 3;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, m_info.SetInfo(std::string("GEV"), &m_type, buffer, &m_size));
    EXPECT_THAT(Peaked().Message(), EndsWith(": *piSize=3 < len=4. iSize must be >= len"));
    m_size = 7;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, m_info.SetInfo(5L, &m_type, buffer, &m_size));
    EXPECT_THAT(Peaked().Message(), EndsWith(": *piSize=7 < size=8. iSize must be >= len"));
    EXPECT_EQ(7U, m_size);
    EXPECT_EQ(INFO_DATATYPE_INT64, m_type) << "the type is told before the size is tested";
    ErrorCache::ReleaseErrorCache();
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, m_info.SetInfo(5L, &m_type, buffer, &m_size, true));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_info.SetInfo(true, nullptr, buffer, &m_size, true));
    EXPECT_EQ(0, ErrorCache::GetErrorCache()->Count()) << "quiet leaves no trace";
}

TEST_F(InfoAnswers, ReadsTypedValues)
{
    const float f = 1.5F;
    float out = 0;
    EXPECT_EQ(0, m_info.GetInfo(INFO_DATATYPE_FLOAT64, &f, 4, out));
    EXPECT_EQ(1.5F, out);
    double d = 0;
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, m_info.GetInfo(INFO_DATATYPE_FLOAT64, &f, 4, d));
    char* p = nullptr;
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, m_info.GetInfo(INFO_DATATYPE_PTR, &f, 8, p));
}

}  // namespace
