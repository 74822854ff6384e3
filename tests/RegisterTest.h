/// Register access to a module's port, as the tests of the register maps make it.
#pragma once

#include "LogConfigFile.h"
#include "frame/Error.h"
#include "frame/GenTL.h"
#include "frame/GenTLHandle.h"
#include "modules/IBaseModule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

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
    /// A read of 8 bytes writes only the first ones. size, unless 0, is the size that it tells instead.
    void Expect(unsigned long address, unsigned long value, unsigned long written = 8, unsigned long size = 0)
    {
        EXPECT_EQ("0:" + std::to_string(size == 0 ? written : size), Read(address)) << address;
        std::string bytes(8, '\xEE');
        std::memcpy(bytes.data(), &value, written);
        EXPECT_EQ(bytes, m_bytes) << address;
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

    /// The first 8 bytes of what the last Read left.
    unsigned long Number() const
    {
        unsigned long number = 0;
        std::memcpy(&number, m_bytes.data(), sizeof number);
        return number;
    }

    std::string m_bytes;

private:
    void* m_hPort = nullptr;
};

}  // namespace GenTL
