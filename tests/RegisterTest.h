/// Register access to a module's port, as the tests of the register maps make it.
#pragma once

#include "LogConfigFile.h"
#include "frame/Error.h"
#include "frame/GenTL.h"
#include "frame/GenTLHandle.h"
#include "modules/IBaseModule.h"
#include "modules/RegisterMap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace GenTL {

/// Through the exported functions, so that what the consumer gets is what is looked at.
class RegisterTest : public testing::Test
{
protected:
    RegisterTest()
    {
        WriteLogConfig();
        EXPECT_EQ(0, GCInitLib());
    }
    ~RegisterTest() override
    {
        DeleteHandle(m_hPort);
        EXPECT_EQ(0, GCCloseLib());
    }

    virtual IBaseModule& Port() = 0;
    void* Handle()
    {
        if (m_hPort == nullptr) {
            EXPECT_EQ(0, AllocateHandle(&m_hPort, &Port()));
        }
        return m_hPort;
    }

    /// To an odd address, in m_bytes; bytes that aren't written are EE.
    std::string Read(unsigned long address, unsigned long size = 8)
    {
        std::string bytes(1 + std::max(size, 8ul), '\xEE');
        const int code = GCReadPort(Handle(), address, bytes.data() + 1, &size);
        m_bytes = bytes.substr(1);
        return Outcome(code, size);
    }
    std::string Write(unsigned long address, unsigned long value, unsigned long size = 8)
    {
        char bytes[9] = {};
        std::memcpy(bytes + 1, &value, sizeof value);
        const int code = GCWritePort(Handle(), address, bytes + 1, &size);
        return Outcome(code, size);
    }
    /// A read of 8 bytes writes only the first ones, and one of fewer nothing. size, unless 0, is the size
    /// that it tells instead.
    void Expect(unsigned long address, unsigned long value, unsigned long written = 8, unsigned long size = 0)
    {
        EXPECT_EQ("0:" + std::to_string(size == 0 ? written : size), Read(address)) << address;
        std::string bytes(8, '\xEE');
        std::memcpy(bytes.data(), &value, written);
        EXPECT_EQ(bytes, m_bytes) << address;
        EXPECT_THAT(Read(address, written - 1), testing::StartsWith("-1016:")) << address;
        EXPECT_EQ(std::string(8, '\xEE'), m_bytes) << address;
    }
    void ExpectText(unsigned long address, const std::string& text)
    {
        const std::string needed = std::to_string(text.size() + 1);
        EXPECT_EQ("0:" + needed, Read(address, 512)) << address;
        EXPECT_EQ(text + std::string(512 - text.size(), '\0'), m_bytes) << "the whole register is filled";
        EXPECT_THAT(Read(address, 1), testing::MatchesRegex("-1016:1 SetInfo.*len=" + needed + ".*"));
        EXPECT_EQ(std::string(8, '\xEE'), m_bytes);
    }
    /// The module's description has not a byte more than the URL says.
    void ExpectDescription(const std::string& module, std::string_view xml)
    {
        char expected[200], url[200];
        std::snprintf(
            expected, sizeof expected,
            "local:SFNC_GenTL%s_Reference_Version_1_0_0_Schema_1_1.xml;F0F00000;%zX?SchemaVersion=1.0.0",
            module.c_str(), xml.size());
        unsigned long size = sizeof url;
        ASSERT_EQ(0, GCGetPortURL(Handle(), url, &size));
        EXPECT_STREQ(expected, url);
        EXPECT_EQ("0:" + std::to_string(xml.size() + 1), Read(0xF0F00000, xml.size() + 1));
        EXPECT_EQ(std::string(xml) + '\xEE', m_bytes);
    }
    /// A field of the action command: only what fits is written and read, and the size stays as given.
    void ExpectActionField(unsigned long address, unsigned long value, unsigned long length)
    {
        EXPECT_EQ("-1016:" + std::to_string(length - 1), Write(address, ~value, length - 1));
        EXPECT_EQ("0:8", Write(address, value));
        Expect(address, value, length, 8);
    }
    /// Only the exact addresses of Map's registers answer, in the directions that they have.
    template <typename Map>
    void ExpectRefusals(const std::string& ofUnknownWrite = "-1015")
    {
        std::size_t count = 0;
        const RegisterRow<Map>* rows = Map::Registers(count);
        for (const RegisterRow<Map>* row = rows; row != rows + count; ++row) {
            EXPECT_TRUE(row->get != nullptr || Read(row->address) == "-1005:8 default") << row->name;
            EXPECT_TRUE(row->set != nullptr || Write(row->address, 0) == "-1005:8 default") << row->name;
            EXPECT_EQ("-1015:8 default", Read(1ul << 32 | row->address)) << row->name;
        }
        for (const unsigned long address :
             {0x0ul, 0x0103ul, 0x2200ul, 0x5000ul, 0xF0F00001ul, 0x1F0F00000ul}) {
            EXPECT_EQ("-1015:8 default", Read(address)) << address;
            EXPECT_EQ(ofUnknownWrite + ":8 default", Write(address, 0)) << address;
        }
        // The exported functions hand on what they are given.
        unsigned long size = 8;
        EXPECT_EQ("-1009:8 default", Outcome(GCReadPort(Handle(), 0x0100, nullptr, &size), size));
        EXPECT_EQ("-1009:8 default", Outcome(GCWritePort(Handle(), 0x0100, nullptr, &size), size));
        EXPECT_EQ("-1009:8 default", Outcome(GCReadPort(Handle(), 0x0100, &size, nullptr), size));
        EXPECT_EQ("-1009:8 default", Outcome(GCWritePort(Handle(), 0x0100, &size, nullptr), size));
    }
    /// "code:size", and what is cached: "default" for the code's own message, or another message as it is.
    static std::string Outcome(int code, unsigned long size)
    {
        std::string outcome = std::to_string(code) + ":" + std::to_string(size);
        if (Error e; ErrorCache::GetErrorCache()->Pop(e) == 0) {
            EXPECT_EQ(code, e.Code());
            outcome += " " + (e.Message() == e.CodeDefaultMessage() ? "default" : e.Message());
        }
        return outcome;
    }

    std::string m_bytes;

private:
    void* m_hPort = nullptr;
};

}  // namespace GenTL
