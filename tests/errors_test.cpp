/// The error stack and the typed info answers: what the consumer reads after a failure.
#include "frame/Error.h"
#include "frame/InfoUtility.h"
#include "frame/PortableUtil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace GenTL;
using testing::EndsWith;
using testing::MatchesRegex;

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
    EXPECT_THAT(message, MatchesRegex("TestBody\\(\\):[0-9]+: GenTL::GC_ERR_ABORT\\(-1012\\)"));
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

TEST_F(ErrorStack, TooSmallAnAnswerKeepsTheSizeAndSaysWhatIsNeeded)
{
    const InfoUtility info;
    int type = 0;
    char buffer[8] = {};
    unsigned long size = 3;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, info.SetInfo(std::string("GEV"), &type, buffer, &size));
    EXPECT_THAT(Peaked().Message(), EndsWith(": *piSize=3 < len=4. iSize must be >= len"));
    size = 7;
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, info.SetInfo(5L, &type, buffer, &size));
    EXPECT_THAT(Peaked().Message(), EndsWith(": *piSize=7 < size=8. iSize must be >= len"));
    EXPECT_EQ(7U, size);
    EXPECT_EQ(INFO_DATATYPE_INT64, type) << "the type is told before the size is tested";
    ErrorCache::ReleaseErrorCache();
    EXPECT_EQ(GC_ERR_BUFFER_TOO_SMALL, info.SetInfo(5L, &type, buffer, &size, true));
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, info.SetInfo(true, nullptr, buffer, &size, true));
    EXPECT_EQ(0, ErrorCache::GetErrorCache()->Count()) << "quiet leaves no trace";
}

TEST_F(ErrorStack, ReadsTypedValues)
{
    const InfoUtility info;
    const float f = 1.5F;
    float out = 0;
    EXPECT_EQ(0, info.GetInfo(INFO_DATATYPE_FLOAT64, &f, 4, out));
    EXPECT_EQ(1.5F, out);
    double d = 0;
    EXPECT_EQ(GC_ERR_INVALID_BUFFER, info.GetInfo(INFO_DATATYPE_FLOAT64, &f, 4, d));
    char* p = nullptr;
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, info.GetInfo(INFO_DATATYPE_PTR, &f, 8, p));
}

}  // namespace
