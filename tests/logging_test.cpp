/// Log records on the wire of the built-in channel, the filter, and faults of the configuration.
#include "LogListener.h"
#include "log/GLogger.h"
#include "log/HLogger.h"
#include "log/localization.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <stdexcept>

using namespace GenTL;
using nlohmann::json;

namespace {

class Logging : public testing::Test
{
protected:
    ~Logging() override { std::remove("norvo_log.conf"); }

    json Config() const
    {
        return {
            {"ports",
             {{"gentl_out", m_listener.Port()},
              {"hal_out", m_listener.Port()},
              {"vesta_in", 1},
              {"zt_in", 2},
              {"gentl_in", 3}}                         },
            {"levels", {{"gentl", 300.9}, {"hal", 600}}},
        };
    }
    static void Write(const json& config) { std::ofstream("norvo_log.conf") << config.dump(2); }

    LogListener m_listener;
};

TEST_F(Logging, RecordCarriesCodeModuleAndTime)
{
    Write(Config());
    const HLogger sink;
    HLogger::Error("x", 5);
    const json record = m_listener.Next();
    EXPECT_EQ("x: 5", record.at("message"));
    EXPECT_EQ("", record.at("userid"));
    EXPECT_EQ("HAL", record.at("module"));
    EXPECT_EQ(200, record.at("level"));
    EXPECT_GT(std::stoull(record.at("timestamp").get<std::string>()), 1600000000000ULL);
}

// A level of 300.9 acts as 300: warnings pass, information doesn't.
TEST_F(Logging, FilterKeepsWhatIsLessSevere)
{
    Write(Config());
    const GLogger sink;
    GLogger::Info("dropped");
    GLogger::Warn("user", "kept");
    EXPECT_EQ("user", m_listener.Next().at("userid"));
    EXPECT_EQ("", m_listener.NextMessage());
}

// Texts may hold a camera's bytes: a log call must not throw on them, nor without a sink.
TEST_F(Logging, SurvivesBadTextAndNoSink)
{
    GLogger::Error("nobody listens");
    Write(Config());
    const GLogger sink;
    GLogger::Error("\xff\xfe serial");
    EXPECT_FALSE(m_listener.Next().is_null());
    GLogger::Error(nullptr);
    EXPECT_FALSE(m_listener.Next().is_null());
}

TEST_F(Logging, FaultyConfigurationIsALogicError)
{
    EXPECT_THROW(GLogger(), std::logic_error) << "no file";
    struct Case
    {
        const char* pointer;
        json value;
    };
    const Case cases[] = {
        {"/ports/gentl_out", nullptr},
        {"/ports/gentl_out", 70000  },
        {"/ports/gentl_out", -1     },
        {"/ports/zt_in",     true   },
        {"/ports/gentl_in",  "3"    },
        {"/levels/gentl",    nullptr},
        {"/levels/gentl",    true   },
    };
    for (const Case& row : cases) {
        json config = Config();
        config[json::json_pointer(row.pointer)] = row.value;
        Write(config);
        EXPECT_THROW(GLogger(), std::logic_error) << row.pointer << " " << row.value;
    }
    std::ofstream("norvo_log.conf") << "{";
    EXPECT_THROW(GLogger(), json::exception);
    Write(Config());
    EXPECT_NO_THROW(GLogger()) << "a later life comes up again";
}

TEST(Localization, ReplacesEveryPlaceholderThatHasAnArgument)
{
    EXPECT_EQ("a a b", loc::al("{0} {0} {1}", {"a", "b"}));
    EXPECT_EQ("a a {1}", loc::al("{0} {0} {1}", {"a"}));
    loc::init("none", 0);
    EXPECT_EQ("{0}", loc::al("{0}"));
}

}  // namespace
