/// The logic of the command line tool that needs no camera: descriptions, pixels, counting, log records.
#include "gentl/Description.h"
#include "gentl/DescriptionSource.h"
#include "gentl/Events.h"
#include "gentl/Failure.h"
#include "gentl/Features.h"
#include "gentl/Formula.h"
#include "gentl/ImageSaver.h"
#include "gentl/ImageWriter.h"
#include "gentl/LogReceiver.h"
#include "gentl/PixelFormat.h"
#include "gentl/Statistics.h"
#include "gentl/Unzip.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <png.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace Tool {
namespace {

using testing::HasSubstr;

/// A camera's registers, byte by byte.
class FakePort : public IRegisterPort
{
public:
    std::vector<std::uint8_t> Read(std::uint64_t address, std::size_t size) override
    {
        if (address + size > m_bytes.size()) {
            throw Failure("no register", "hint", "stack");
        }
        const auto first = m_bytes.begin() + static_cast<std::ptrdiff_t>(address);
        return {first, first + static_cast<std::ptrdiff_t>(size)};
    }
    void Write(std::uint64_t address, const std::vector<std::uint8_t>& bytes) override
    {
        for (const std::uint8_t byte : bytes) {
            m_bytes.at(address++) = byte;
        }
    }

private:
    std::vector<std::uint8_t> m_bytes = std::vector<std::uint8_t>(0x200);
};

constexpr char kXml[] = R"(<?xml version="1.0"?>
<RegisterDescription ModelName="m">
 <Group Comment="nested">
  <Integer Name="Width"><pValue>WidthReg</pValue><pValueCopy>WidthCopy</pValueCopy></Integer>
  <IntReg Name="WidthReg"><Address>0x100</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
   <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>
 </Group>
 <IntReg Name="WidthCopy"><Address>0x120</Address><Length>2</Length><pPort>Device</pPort>
  <Endianess>LittleEndian</Endianess></IntReg>
 <MaskedIntReg Name="Field"><pAddress>Base</pAddress><Address>4</Address><Length>4</Length><pPort>Device</pPort>
  <LSB>23</LSB><MSB>16</MSB><Sign>Signed</Sign><Endianess>BigEndian</Endianess></MaskedIntReg>
 <Integer Name="Base"><Value>0x100</Value></Integer>
 <StructReg Comment="s"><Address>0x108</Address><Length>4</Length><pPort>Device</pPort><Endianess>LittleEndian</Endianess>
  <StructEntry Name="Low"><LSB>0</LSB><MSB>3</MSB></StructEntry>
  <StructEntry Name="Flag"><Bit>31</Bit></StructEntry></StructReg>
 <Enumeration Name="PixelFormat"><EnumEntry Name="Mono8"><Value>0x01080001</Value></EnumEntry>
  <EnumEntry Name="Mono16"><Value>0x01100007</Value></EnumEntry><pValue>FormatReg</pValue></Enumeration>
 <IntReg Name="FormatReg"><Address>0x10C</Address><Length>4</Length><pPort>Device</pPort>
  <Endianess>BigEndian</Endianess></IntReg>
 <IntSwissKnife Name="PayloadSize"><pVariable Name="W">Width</pVariable><Constant Name="H">480</Constant>
  <Expression Name="BYTES">W * H</Expression><pVariable Name="F">FormatReg</pVariable>
  <Formula>BYTES * (((F &gt;&gt; 16) &amp; 0xFF) / 8)</Formula></IntSwissKnife>
 <IntConverter Name="Exposure"><FormulaTo>FROM / 10</FormulaTo><FormulaFrom>TO * 10</FormulaFrom>
  <pValue>WidthReg</pValue></IntConverter>
 <Command Name="AcquisitionStart"><pValue>CommandReg</pValue><CommandValue>7</CommandValue></Command>
 <IntReg Name="CommandReg"><Address>0x110</Address><pIndex Offset="4">Selector</pIndex><Length>4</Length>
  <AccessMode>WO</AccessMode><pPort>Device</pPort><Endianess>BigEndian</Endianess></IntReg>
 <Integer Name="Selector"><Value>0</Value></Integer>
 <Integer Name="Selected"><pIndex>Selector</pIndex><ValueIndexed Index="1">11</ValueIndexed>
  <pValueIndexed Index="2">WidthReg</pValueIndexed><ValueDefault>99</ValueDefault></Integer>
 <IntReg Name="ReadOnly"><Address>0x100</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort></IntReg>
 <IntReg Name="Nowhere"><Address>0x900</Address><Length>4</Length><pPort>Device</pPort></IntReg>
 <IntReg Name="Huge"><Address>0x100</Address><Length>4096</Length><pPort>Device</pPort></IntReg>
 <MaskedIntReg Name="BadBit"><Address>0x100</Address><Length>4</Length><pPort>Device</pPort>
  <LSB>32</LSB><MSB>0</MSB></MaskedIntReg>
 <IntReg Name="InChunk"><Address>0</Address><Length>4</Length><pPort>Chunk</pPort></IntReg>
 <Integer Name="ViaCategory"><pValue>Root</pValue></Integer><Category Name="Root"/>
 <Integer Name="Circle"><pValue>Circle2</pValue></Integer><Integer Name="Circle2"><pValue>Circle</pValue></Integer>
 <IntSwissKnife Name="OwnEcho"><Expression Name="E">E + E</Expression><Formula>E</Formula></IntSwissKnife>
 <Port Name="Device"/><Port Name="Chunk"><ChunkID>1</ChunkID></Port>
</RegisterDescription>)";

class DescriptionTest : public testing::Test
{
protected:
    DescriptionTest()
    {
        m_port.Write(0x100, {0x00, 0x00, 0x02, 0x80, 0x12, 0x34, 0xFE, 0x78, 0x85, 0x00, 0x00, 0x80});
        m_port.Write(0x10C, {0x01, 0x08, 0x00, 0x01});
    }

    FakePort m_port;
    Description m_description{kXml, m_port};
};

// Would catch bits counted from the wrong end, wrong byte order, lost signs, and addresses not summed up.
TEST_F(DescriptionTest, ReadsAndWritesValuesAndNothingBesideThem)
{
    using Bytes = std::vector<std::uint8_t>;
    const std::map<std::string, std::int64_t> values = {
        {"Field",       -2       },
        {"Low",         5        },
        {"Flag",        1        },
        {"PayloadSize", 640 * 480},
        {"Exposure",    6400     },
        {"Selected",    99       },
    };
    for (const auto& [name, value] : values) {
        EXPECT_EQ(m_description.GetInteger(name), value) << name;
    }
    EXPECT_EQ(m_description.GetEnumeration("PixelFormat"), "Mono8");

    m_description.SetInteger("Width", 0x1234);
    EXPECT_EQ(m_port.Read(0x100, 4), (Bytes{0, 0, 0x12, 0x34}));
    EXPECT_EQ(m_port.Read(0x120, 2), (Bytes{0x34, 0x12}));
    m_description.SetInteger("Field", -128);
    EXPECT_EQ(m_port.Read(0x104, 4), (Bytes{0x12, 0x34, 0x80, 0x78}));
    m_description.SetInteger("Flag", 0);
    EXPECT_EQ(m_port.Read(0x108, 4), (Bytes{0x85, 0, 0, 0}));
    m_description.SetEnumeration("PixelFormat", "Mono16");
    EXPECT_EQ(m_description.GetInteger("PayloadSize"), 0x1234 * 480 * 2);
    m_description.SetInteger("Selector", 1);
    m_description.Execute("AcquisitionStart");
    EXPECT_EQ(m_port.Read(0x114, 4), (Bytes{0, 0, 0, 7}));
    EXPECT_EQ(m_description.GetInteger("Selected"), 11);
    m_description.SetInteger("Selector", 2);
    m_description.SetInteger("Selected", 50);
    EXPECT_EQ(m_description.GetInteger("Exposure"), 500);
    m_description.SetInteger("Exposure", 90);
    EXPECT_EQ(m_description.GetInteger("Width"), 9);
}

template <typename Action>
std::string MessageOf(Action action)
{
    try {
        action();
    } catch (const Failure& failure) {
        return failure.Report();
    }
    return "no failure";
}

// As modules answer: with the size of the value instead of the register's.
TEST(RegisterFields, LackUpperBytesOnlyIfTheyComeLast)
{
    class ShortPort : public FakePort
    {
        std::vector<std::uint8_t> Read(std::uint64_t, std::size_t) override { return {5, 1, 0, 0}; }
    } port;
    EXPECT_EQ(0x105, ReadInteger(port, {0, 8, false, false, 0, 63}));
    EXPECT_THAT(MessageOf([&] { ReadInteger(port, {0, 8, true, false, 0, 63}); }), HasSubstr("4 of 8"));
}

TEST_F(DescriptionTest, SaysWhatItCannotResolve)
{
    const std::pair<const char*, const char*> reads[] = {
        {"ViaCategory", "ViaCategory -> Root: it is of the kind Category"},
        {"Nowhere",     "no register\n    stack\n  what to do: hint"     },
        {"Huge",        "4096 bytes"                                     },
        {"BadBit",      "no bit 32"                                      },
        {"InChunk",     "outside the port's registers"                   },
        {"Circle",      "without end"                                    },
        {"OwnEcho",     "without end"                                    },
    };
    for (const auto& [name, words] : reads) {
        EXPECT_THAT(MessageOf([&, feature = name] { m_description.GetInteger(feature); }), HasSubstr(words));
    }
    EXPECT_THAT(MessageOf([this] { m_description.SetInteger("ReadOnly", 1); }), HasSubstr("read-only"));
    EXPECT_THAT(MessageOf([this] { m_description.SetInteger("Width", -1); }), HasSubstr("doesn't fit"));
    EXPECT_THAT(MessageOf([this] { m_description.SetInteger("Field", 128); }), HasSubstr("doesn't fit"));
    EXPECT_THAT(MessageOf([this] { Description("<a/>", m_port); }), HasSubstr("RegisterDescription"));
    EXPECT_THAT(MessageOf([this] { Description("no XML", m_port); }), HasSubstr("XML"));
    EXPECT_EQ(m_description.GetInteger("Width"), 640);  // a failure leaves nothing behind
}

// A formula of many terms that names another one as often, or a list of values as long.
TEST_F(DescriptionTest, RefusesWhatTakesForEver)
{
    const auto repeat = [](const char* text, int times) {
        std::string all;
        for (int i = 0; i < times; ++i) {
            all += text;
        }
        return all;
    };
    const std::string nodes = "<Integer Name='List'><pIndex>Zero</pIndex>" +
                              repeat("<ValueIndexed Index='7'>1</ValueIndexed>", 15000) +
                              "<ValueDefault>1</ValueDefault></Integer>"
                              "<Integer Name='Zero'><Value>0</Value></Integer>"
                              "<IntSwissKnife Name='K'><pVariable Name='L'>List</pVariable>"
                              "<Expression Name='E'>" +
                              repeat("1+", 15000) + "1</Expression>";
    const std::pair<const char*, const char*> cases[] = {
        {"E+",       "too many steps"            },
        {"L+",       "too many steps"            },
        {"E + E + ", "more than 65536 characters"},
    };
    for (const auto& [terms, words] : cases) {
        const std::string formula = "<Formula>" + repeat(terms, 15000) + "1</Formula></IntSwissKnife>";
        Description description("<RegisterDescription>" + nodes + formula + "</RegisterDescription>", m_port);
        const std::clock_t begin = std::clock();
        EXPECT_THAT(MessageOf([&] { description.GetInteger("K"); }), HasSubstr(words));
        EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC);
    }
}

constexpr char kFeaturesXml[] = R"(<RegisterDescription>
 <Category Name="Root"><pFeature>Switch</pFeature><pFeature>Name</pFeature></Category>
 <Boolean Name="Switch"><pValue>SwitchReg</pValue><OnValue>5</OnValue><OffValue>6</OffValue></Boolean>
 <IntReg Name="SwitchReg"><Address>0</Address><Length>1</Length><AccessMode>RW</AccessMode><pPort>P</pPort></IntReg>
 <String Name="Name"><pValue>NameReg</pValue></String>
 <StringReg Name="NameReg"><Address>16</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>P</pPort></StringReg>
 <Integer Name="Ip"><pValue>IpReg</pValue><Representation>IPV4Address</Representation></Integer>
 <Integer Name="Mac"><ImposedAccessMode>RO</ImposedAccessMode><pValue>IpReg</pValue>
  <Representation>MACAddress</Representation></Integer>
 <IntReg Name="IpReg"><Address>32</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>P</pPort>
  <Endianess>LittleEndian</Endianess></IntReg>
 <Integer Name="Locked"><pIsLocked>Switch</pIsLocked><pValue>IpReg</pValue></Integer>
 <Integer Name="Hidden"><pIsAvailable>Never</pIsAvailable><pValue>IpReg</pValue></Integer>
 <Integer Name="Never"><Value>0</Value></Integer>
 <Integer Name="Behind"><pValue>Hidden</pValue></Integer>
 <Enumeration Name="Mode"><EnumEntry Name="Here"><Value>0</Value></EnumEntry>
  <EnumEntry Name="Gone"><pIsImplemented>Never</pIsImplemented><Value>1</Value></EnumEntry>
  <pValue>Raw</pValue></Enumeration>
 <Integer Name="Hex"><pValue>IpReg</pValue><Representation>HexNumber</Representation></Integer>
 <Float Name="Rate"><pValue>Big4</pValue><Min>-0.5</Min><pMax>Most</pMax><Unit>Hz</Unit></Float>
 <Integer Name="Most"><Value>1000</Value></Integer>
 <FloatReg Name="Big4"><Address>64</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>P</pPort>
  <Endianess>BigEndian</Endianess></FloatReg>
 <FloatReg Name="Little8"><Address>72</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>P</pPort>
  <Endianess>LittleEndian</Endianess></FloatReg>
 <FloatReg Name="Odd"><Address>64</Address><Length>6</Length><pPort>P</pPort></FloatReg>
 <IntReg Name="Raw"><Address>80</Address><Length>2</Length><AccessMode>RW</AccessMode><pPort>P</pPort></IntReg>
 <Converter Name="Gain"><FormulaTo>FROM * SCALE</FormulaTo><FormulaFrom>TO / SCALE</FormulaFrom>
  <Constant Name="SCALE">10.0</Constant><pValue>Raw</pValue></Converter>
 <SwissKnife Name="Period"><pVariable Name="R">Rate</pVariable><Formula>1000 / R + 0 * PI</Formula></SwissKnife>
 <Integer Name="Whole"><pValue>Rate</pValue></Integer>
 <Float Name="Own"><Value>1e3</Value></Float>
 <Port Name="P"/></RegisterDescription>)";

// What is shown can be given back, in the words that a person uses. Would catch swapped bytes, integer
// arithmetic on the way of a real number, and values that reach a register out of range.
TEST(Features, AreWrittenAsTheyAreShownOrRefused)
{
    using Bytes = std::vector<std::uint8_t>;
    FakePort port;
    Description description(kFeaturesXml, port);
    const struct
    {
        const char *feature, *shown, *written, *thenShown;
    } rows[] = {
        {"Locked",  "0",                 "17",           "17"               },
        {"Ip",      "0.0.0.17",          "192.168.1.99", "192.168.1.99"     },
        {"Mac",     "00:00:C0:A8:01:63", nullptr,        "00:00:C0:A8:01:63"},
        {"Hex",     "0xC0A80163",        "0xFf",         "0xFF"             },
        {"Name",    "\"\"",              "\"1234567\"",  "\"1234567\""      },
        {"Name",    "\"1234567\"",       "x",            "\"x\""            },
        {"Switch",  "false",             "on",           "true"             },
        {"Locked",  "255",               nullptr,        "255"              },
        {"Switch",  "true",              "0",            "false"            },
        {"Hidden",  "255",               nullptr,        "255"              },
        {"Rate",    "0",                 "12.1",         "12.1"             },
        {"Little8", "0",                 "0.1",          "0.1"              },
        {"Gain",    "0",                 "3.26",         "3.3"              },
        {"Own",     "1000",              "-1e-7",        "-1e-07"           },
        {"Whole",   "12",                "8",            "8"                },
        {"Rate",    "8",                 "1e3",          "1000"             },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.feature);
        EXPECT_EQ(row.shown, FeatureText(description, row.feature));
        if (row.written != nullptr) {
            WriteFeature(description, row.feature, row.written);
        } else {
            EXPECT_THAT(MessageOf([&] { WriteFeature(description, row.feature, "1"); }),
                        testing::ContainsRegex("read-only|isn't available"));
        }
        EXPECT_EQ(row.thenShown, FeatureText(description, row.feature));
    }
    EXPECT_EQ("1", FeatureText(description, "Period"));
    EXPECT_EQ("Hz", description.Unit("Rate"));
    EXPECT_EQ(std::vector<std::string>{"Here"}, description.Entries("Mode"));
    const char* const refused[][3] = {
        {"Name",   "12345678",             "up to 7"            },
        {"Switch", "maybe",                "maybe"              },
        {"Ip",     "",                     "no number"          },
        {"Ip",     "1.2.3.4.5",            "no number"          },
        {"Ip",     "99999999999999999999", "no number"          },
        {"Rate",   "1000.1",               "beyond its Max 1000"},
        {"Whole",  "-1",                   "beyond its Min -0.5"},
        {"Rate",   "nan",                  "no finite number"   },
        {"Big4",   "1e39",                 "doesn't fit"        },
        {"Gain",   "6553.6",               "doesn't fit"        },
        {"Gain",   "1e300",                "no 64-bit integer"  },
        {"Period", "1",                    "read-only"          },
        {"Odd",    "1",                    "6 bytes"            },
        {"Mode",   "Gone",                 "isn't available"    },
        {"Behind", "1",                    "isn't available"    },
    };
    for (const auto& [feature, text, words] : refused) {
        EXPECT_THAT(MessageOf([&, f = feature, t = text] { WriteFeature(description, f, t); }),
                    HasSubstr(words))
            << feature << " " << text;
    }
    EXPECT_EQ(Bytes{6}, port.Read(0, 1));
    EXPECT_EQ((Bytes{'x', 0, 0, 0, 0, 0, 0, 0}), port.Read(16, 8));
    EXPECT_EQ((Bytes{0x44, 0x7A, 0, 0, 0, 0, 0, 0}), port.Read(64, 8));
    EXPECT_EQ((Bytes{0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}), port.Read(72, 8));
    EXPECT_EQ((Bytes{33, 0}), port.Read(80, 2));
    WriteFeature(description, "Rate", "0");
    EXPECT_THAT(MessageOf([&] { description.GetInteger("Period"); }), HasSubstr("division by 0"));
}

TEST(Features, ArePrintedInCategoriesThatHoldEachOtherAFewTimes)
{
    const auto print = [](int depth) {
        std::string xml = "<RegisterDescription><Category Name='Root'><pFeature>0</pFeature></Category>";
        for (int i = 0; i < depth; ++i) {
            xml += "<Category Name='" + std::to_string(i) + "'><pFeature>" + std::to_string(i + 1) +
                   "</pFeature></Category>";
        }
        xml +=
            "<Integer Name='" + std::to_string(depth) +
            "'><Value>5</Value><Unit>\x7F[2J&#10;\xC2\x9Bm \xC2\xB5s</Unit></Integer></RegisterDescription>";
        FakePort port;
        Description description(xml, port);
        std::ostringstream out;
        PrintFeatures(description, out);
        return out.str();
    };
    EXPECT_EQ("0\n  1\n    2" + std::string(37, ' ') + "= 5 .[2J.\xC2.m \xC2\xB5s\n", print(2));
    EXPECT_THAT(MessageOf([&] { print(30000); }), HasSubstr("categories nested too deeply"));
}

TEST(Formula, FollowsThePrecedenceOfOperators)
{
    const std::pair<const char*, std::int64_t> cases[] = {
        {"(10 - 4 - 3) * 3 + 1",                   10       },
        {"-2 ** 3 ** 2",                           -512     },
        {"~0 & 0xF0 | 1",                          0xF1     },
        {"1 << 4 >> 2",                            4        },
        {"X = 5 && X <> 4 ? 10 : 1 / 0",           10       },
        {"X > 5 ? 1 : X >= 5 ? 2 : 3",             2        },
        {"ABS(-7) + SGN(-3) - NEG(2)",             8        },
        {"0x7FFFFFFFFFFFFFFF + 1",                 INT64_MIN},
        {"(0 - 0x7FFFFFFFFFFFFFFF - 1) / (0 - 1)", INT64_MIN},
        {"1 << 64",                                0        },
        {"0 - 1 >> 70",                            -1       },
    };
    const auto five = [](const std::string&) { return 5; };
    for (const auto& [formula, value] : cases) {
        EXPECT_EQ(EvaluateFormula<std::int64_t>(formula, five), value) << formula;
    }
    for (const char* bad : {"", "1 +", "1 / 0", "5 % 0", "(1", "1 2", "1.5", "1 ? 2", "SIN(1)",
                            "99999999999999999999", "0x", "$"}) {
        EXPECT_THROW(EvaluateFormula<std::int64_t>(bad, five), Failure) << bad;
    }
    std::string deep;
    for (const char* nested : {"(", "-", "1 ** ", "1 ? ", "1||1&&1|1^1&1=1<1<<1+1*1**("}) {
        for (deep.clear(); deep.size() < 100000; deep += nested) {
        }
        const std::string message = MessageOf([&] { EvaluateFormula<std::int64_t>(deep, five); });
        EXPECT_THAT(message, HasSubstr("nested too deeply")) << nested;
        EXPECT_LT(message.size(), 200u) << nested;
    }
}

// As cameras tell their pixel formats: one condition in the other's last branch, or in its first one.
TEST(Formula, ReadsAHundredConditions)
{
    std::string chain = "-1";
    std::string inBrackets = "-1";
    std::string inFirst = "99";
    for (int i = 99; i >= 0; --i) {
        const std::string number = std::to_string(i);
        chain.insert(0, "X = " + number + " ? " + number + " : ");
        inBrackets = "(X = " + number + ") ? " + number + " : (" + inBrackets + ")";
        inFirst = "(X > " + number + ") ? (" + inFirst + ") : " + number;
    }
    for (const std::int64_t x : {0, 1, 98, 99}) {
        for (const std::string& formula : {chain, inBrackets, inFirst}) {
            EXPECT_EQ(x, EvaluateFormula<std::int64_t>(formula, [x](const std::string&) { return x; }));
        }
    }
}

TEST(Formula, CountsInRealNumbers)
{
    const std::pair<const char*, double> cases[] = {
        {"1 / 4",                               0.25 },
        {"1.5e-3 * 2 + .5",                     0.503},
        {"5.5 % 2",                             1.5  },
        {"2 ** -1",                             0.5  },
        {"X > 2.4 && X < 2.6 ? 0x10 : 1 / 0.0", 16   },
        {"(X << 2 | 1) + ~0",                   12   },
        {"SQRT(16) + LG(1000) + FLOOR(-1.5)",   5    },
        {"0 = 1 ? LN(0) : ABS(-X) - SGN(-2.0)", 3.5  },
    };
    const auto variable = [](const std::string&) { return 2.5; };
    for (const auto& [formula, value] : cases) {
        EXPECT_DOUBLE_EQ(EvaluateFormula<double>(formula, variable), value) << formula;
    }
    for (const char* bad :
         {"1 / 0", "1 % 0.0", "LN(0)", "SQRT(-1)", "1e999", "1e300 | 1", "1.5.2", "1e", "FOO(1)"}) {
        EXPECT_THROW(EvaluateFormula<double>(bad, variable), Failure) << bad;
    }
}

TEST(DescriptionUrl, NamesAPlaceInTheCameraOrIsRefused)
{
    const LocalUrl url = ParseLocalUrl("Local:///dir/cam.xml;0x10000;1F4?SchemaVersion=1.1.0");
    EXPECT_EQ(url.fileName, "dir/cam.xml");
    EXPECT_EQ(url.address, 0x10000u);
    EXPECT_EQ(url.length, 0x1F4u);
    for (const char* bad :
         {"", "local:", "local:a.xml", "local:a.xml;10", "local:a.xml;10;", "local:a.xml;zz;10",
          "local:a.xml;10;0", "local:a.xml;10;FFFFFFFF", "file:///a.xml", "http://host/a.xml"}) {
        EXPECT_THROW(ParseLocalUrl(bad), Failure) << bad;
    }
}

TEST(Unzip, ReadsTheFirstFileOfAnArchive)
{
    constexpr char kArchive[] =
        "\x50\x4b\x03\x04\x14\x00\x00\x00\x08\x00\x00\x00\x21\x00\xdb\x63\xe6\x75\x0c\x00\x00\x00\x2a\x00"
        "\x00\x00\x05\x00\x00\x00\x63\x2e\x78\x6d\x6c\xb3\x09\xca\xcf\x2f\xd1\xb7\xb3\x21\x4c\x01\x00\x50"
        "\x4b\x01\x02\x14\x03\x14\x00\x00\x00\x08\x00\x00\x00\x21\x00\xdb\x63\xe6\x75\x0c\x00\x00\x00\x2a"
        "\x00\x00\x00\x05\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x80\x01\x00\x00\x00\x00\x63\x2e\x78"
        "\x6d\x6c\x50\x4b\x05\x06\x00\x00\x00\x00\x01\x00\x01\x00\x33\x00\x00\x00\x2f\x00\x00\x00\x00\x00";
    const std::string archive(kArchive, sizeof kArchive - 1);
    EXPECT_EQ("<Root/><Root/><Root/><Root/><Root/><Root/>", Unzipped(archive));
    EXPECT_EQ("<Root/>", Unzipped("<Root/>"));
    for (const std::size_t size : {std::size_t{8}, archive.size() / 2, archive.size() - 1}) {
        EXPECT_THROW(Unzipped(archive.substr(0, size)), Failure) << size;
    }
}

Image MakeImage(const std::vector<std::uint8_t>& bytes,
                std::uint64_t width,
                std::uint64_t height,
                std::uint64_t format)
{
    Image image;
    image.pData = bytes.data();
    image.memorySize = bytes.size();
    image.width = width;
    image.height = height;
    image.pixelFormat = format;
    return image;
}

// Would catch swapped nibbles and lines that don't follow each other within a byte.
TEST(PixelFormats, AreUnpackedSampleBySample)
{
    const std::tuple<std::uint32_t, std::vector<std::uint8_t>, std::vector<std::uint16_t>> cases[] = {
        {0x01100005, {0x34, 0x02, 0xFF, 0x0F, 0x01, 0x00}, {0x2340, 0xFFF0, 0x0010}}, // Mono12
        {0x010C0047, {0x34, 0x12, 0xAB, 0xEF, 0x0C},       {0x2340, 0xAB10, 0xCEF0}}, // Mono12p
        {0x010A0046, {0x01, 0xFC, 0x2F, 0x00},             {0x0040, 0xFFC0, 0x0080}}, // Mono10p
        {0x010C0006, {0x12, 0x63, 0x45, 0xAB, 0x0C},       {0x1230, 0x4560, 0xABC0}}, // Mono12Packed
        {0x010C0004, {0xFF, 0x23, 0x80, 0x01, 0x01},       {0xFFC0, 0x8080, 0x0140}}, // Mono10Packed
    };
    for (const auto& [code, bytes, samples] : cases) {
        const PixelFormat* pFormat = FindPixelFormat(code);
        ASSERT_NE(pFormat, nullptr);
        EXPECT_EQ(Unpack(*pFormat, MakeImage(bytes, 1, 3, code)), samples) << pFormat->name;
        const std::vector<std::uint8_t> tooShort(bytes.begin(), bytes.end() - 1);
        EXPECT_THROW(Unpack(*pFormat, MakeImage(tooShort, 1, 3, code)), Failure) << pFormat->name;
    }
    EXPECT_THROW(Unpack(*FindPixelFormat(0x01100005), MakeImage({1, 2}, UINT64_MAX, UINT64_MAX, 0x01100005)),
                 Failure);
}

TEST(Png, ShowsWhatTheCameraSent)
{
    // Two padded lines of two pixels BGR8; the file has them as RGB.
    const std::vector<std::uint8_t> bytes = {3, 2, 1, 6, 5, 4, 0xEE, 9, 8, 7, 12, 11, 10};
    Image image = MakeImage(bytes, 2, 2, 0x02180015);
    image.linePadding = 1;
    WritePng("bgr.png", image);
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_file(&png, "bgr.png"), 0);
    png.format = PNG_FORMAT_RGB;
    std::vector<std::uint8_t> read(PNG_IMAGE_SIZE(png));
    ASSERT_NE(png_image_finish_read(&png, nullptr, read.data(), 0, nullptr), 0);
    EXPECT_EQ(read, (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));

    image.memorySize = bytes.size() - 1;
    EXPECT_THROW(WritePng("bad.png", image), Failure);
    image.pixelFormat = 0x12345678;
    EXPECT_THAT(MessageOf([&] { WritePng("bad.png", image); }), HasSubstr("--raw"));
}

TEST(ImageSaverTest, GivesEveryBufferBackAndTellsTheFirstFailure)
{
    std::atomic<unsigned> returned{0};
    ImageSaver saver(
        [](const Image&, std::uint64_t number) {
            if (number == 3) {
                throw Failure("disk full");
            }
        },
        [&](void*) { ++returned; });
    for (std::uint64_t i = 1; i <= 3; ++i) {
        saver.Save({}, i, nullptr);
    }
    EXPECT_THROW(saver.Finish(), Failure);
    EXPECT_EQ(returned, 3u);
    EXPECT_THROW(saver.Save({}, 4, nullptr), Failure);
}

TEST(StatisticsTest, CountsWhatIsMissing)
{
    const std::pair<std::vector<std::uint64_t>, std::uint64_t> cases[] = {
        {{1, 2, 3},            0                },
        {{1, 5},               3                },
        {{1, 3, 2, 4},         0                }, // a late one
        {{0, 0},               0                }, // not known
        {{65533, 65535, 1, 3}, 65532 + 1 + 0 + 1}, // 16 bits
        {{0x10000, 0x10002},   0xFFFF + 1       }, // 64 bits
    };
    for (const auto& [ids, lost] : cases) {
        Statistics statistics;
        Image image;
        for (const std::uint64_t id : ids) {
            image.id = id;
            statistics.Count(image, {});
        }
        EXPECT_EQ(statistics.Lost(), lost) << testing::PrintToString(ids);
    }
}

TEST(StatisticsTest, MeasuresFromTheFirstImageToTheLast)
{
    Statistics statistics;
    Image image;
    image.sizeFilled = 1000;
    EXPECT_FALSE(statistics.FrameRate());
    for (int i = 0; i <= 4; ++i) {
        statistics.Count(image, Statistics::Clock::time_point(std::chrono::milliseconds(500 * i)));
    }
    EXPECT_DOUBLE_EQ(*statistics.FrameRate(), 2.0);
    EXPECT_DOUBLE_EQ(*statistics.BytesPerSecond(), 2000.0);
}

TEST(LogRecord, IsShownInOneLineOrAsItCame)
{
    EXPECT_THAT(
        FormatLogRecord(R"({"level":200,"message":"text","module":"HAL","timestamp":"1234","userid":"u"})"),
        testing::AllOf(HasSubstr(".234"), HasSubstr("ERROR"), HasSubstr("HAL"), HasSubstr("[u] text")));
    for (const char* odd : {"", "no json", "[1]", "\xFF"}) {
        EXPECT_EQ(FormatLogRecord(odd), odd);
    }
    EXPECT_THAT(FormatLogRecord(R"({"level":"x","message":7})"), HasSubstr("0"));
}

TEST(EventTexts, TellWhatStandsInTheDatagram)
{
    using Bytes = std::vector<std::uint8_t>;
    const Bytes event = {0x42, 0, 0, 0xC0, 0, 16, 0, 1};
    const Bytes extendedEvent = {0x42, 0x11, 0, 0xC0, 0, 24, 0, 1};
    const Bytes eventData = {0x42, 0, 0, 0xC2, 0, 33, 0, 1};
    const Bytes first = {0, 0, 0x90, 0x02, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0, 2};
    const Bytes second = {0, 0, 0x90, 0x00, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};
    const Bytes extended = {0, 0, 0x90, 0x02, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0};
    const Bytes rest = {0xAB, 2};
    const auto join = [](const auto&... parts) {
        Bytes all;
        (all.insert(all.end(), parts.begin(), parts.end()), ...);
        return all;
    };
    const std::string firstText = "  id 0x9002  stream 0  block 7  timestamp 4294967298\n";
    EXPECT_EQ(
        EventText(join(event, first, second, rest)),
        "EVENT    " + firstText + "EVENT      id 0x9000  stream -  block 0  timestamp 9\n    000  ab 02\n");
    EXPECT_EQ(EventText(join(extendedEvent, extended)),
              "EVENT      id 0x9002  stream 1  block 4294967296  timestamp 256\n");
    EXPECT_EQ(EventText(join(eventData, first, Bytes(16), rest)),
              "EVENTDATA" + firstText +
                  "    000  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n    010  ab 02\n");
    // What is too short for what it says, or something else, is shown and not read beyond its end.
    EXPECT_EQ(EventText({}), "not an event, 0 bytes\n");
    EXPECT_THAT(EventText(join(extendedEvent, first)), HasSubstr("not an event, 24 bytes\n    000  42 11"));
    EXPECT_THAT(EventText({0x42, 0, 0, 0xC4, 0, 16, 0, 1}), HasSubstr("not an event, 8 bytes"));
}

}  // namespace
}  // namespace Tool
