/// The modules' descriptions against the register maps that answer for them.
#include "device/DeviceReg.h"
#include "modules/InterfaceReg.h"
#include "modules/SystemReg.h"
#include "stream/StreamReg.h"
#include "xml/LocalXml.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include <pugixml.hpp>

using namespace GenTL;
using testing::ContainerEq;

namespace {

/// What a register node says, or has to say, on one line.
using Registers = std::map<std::string, std::string>;

struct Module
{
    const char* port;
    std::string_view xml;
    Registers answered;
    /// Registers that are described but that no access reaches.
    Registers declared;
    std::set<std::string> categories;
};

std::string Line(
    unsigned long address, unsigned long length, const std::string& access, bool isText, bool isUnsigned)
{
    return std::to_string(address) + " " + std::to_string(length) + " " + access +
           (isText       ? ""
            : isUnsigned ? " Unsigned LittleEndian"
                         : " Signed LittleEndian");
}

/// Numbers are signed below firstUnsigned.
template <typename Map>
Registers Answered(unsigned long firstUnsigned = ~0ul)
{
    Registers lines;
    std::size_t count = 0;
    const RegisterRow<Map>* rows = Map::Registers(count);
    for (const RegisterRow<Map>* row = rows; row != rows + count; ++row) {
        const std::string access = row->set == nullptr ? "RO" : row->get == nullptr ? "WO" : "RW";
        if (row->address != 0xF0F00000) {
            lines[row->name] =
                Line(row->address, row->length, access, row->length > 8, row->address >= firstUnsigned);
        }
    }
    return lines;
}

const Module kModules[] = {
    {"TLPort",
     kSystemXml,    Answered<SystemReg>(),
     {},
     {"SystemInformation", "InterfaceEnumeration", "ActionCommandControl", "ThreadControl", "Driver"}},
    {"InterfacePort",
     kInterfaceXml, Answered<InterfaceReg>(),
     {},
     {"InterfaceInformation", "DeviceEnumeration"}                                                   },
    {"DevicePort",
     kDeviceXml,    Answered<DeviceReg>(),
     {{"DeviceFamilyName", Line(0x0600, 512, "RO", true, false)},
      {"DeviceManufacturerInfo", Line(0x0800, 512, "RO", true, false)},
      {"DeviceEventDataFormat_Reg", Line(0x1300, 8, "RO", false, false)},
      {"DeviceChunkDataFormat_Reg", Line(0x2000, 8, "RO", false, false)}},
     {"DeviceInformation", "DeviceControl", "StreamEnumeration", "ActionCommandControl"}             },
    {"StreamPort",
     kStreamXml,    Answered<StreamReg>(0x1500),
     {},
     {"StreamInformation", "BufferHandlingControl"}                                                  },
};

class Descriptions : public testing::TestWithParam<Module>
{
protected:
    void SetUp() override
    {
        const std::string_view xml = GetParam().xml;
        const auto result = m_document.load_buffer(xml.data(), xml.size(), pugi::parse_full);
        ASSERT_TRUE(result) << result.description() << " at byte " << result.offset;
        m_root = m_document.child("RegisterDescription");
        for (const pugi::xml_node node : m_root.children()) {
            EXPECT_TRUE(m_nodes.emplace(node.attribute("Name").value(), node).second)
                << node.attribute("Name").value() << " stands there twice";
        }
    }
    pugi::xml_document m_document;
    pugi::xml_node m_root;
    std::map<std::string, pugi::xml_node> m_nodes;
};

TEST_P(Descriptions, DescribeTheRegistersThatAnswer)
{
    Registers expected = GetParam().answered;
    expected.insert(GetParam().declared.begin(), GetParam().declared.end());
    Registers described;
    for (const auto& [name, node] : m_nodes) {
        const std::string kind = node.name();
        if (kind == "StringReg" || kind == "IntReg") {
            std::string& line = described[name];
            line = Line(node.child("Address").text().as_uint(), node.child("Length").text().as_uint(),
                        node.child_value("AccessMode"), true, false);
            if (kind == "IntReg") {
                line += std::string(" ") + node.child_value("Sign") + " " + node.child_value("Endianess");
            }
            EXPECT_STREQ(GetParam().port, node.child_value("pPort")) << name;
        }
    }
    EXPECT_THAT(described, ContainerEq(expected));
    EXPECT_STREQ("Port", m_nodes[GetParam().port].name());
}

TEST_P(Descriptions, LeadFromTheRootToEveryNode)
{
    std::vector<std::string> open{"Root"};
    std::set<std::string> reached;
    while (!open.empty()) {
        const std::string name = open.back();
        open.pop_back();
        if (reached.insert(name).second) {
            ASSERT_EQ(1u, m_nodes.count(name)) << name << " is referred to but isn't there";
            for (const pugi::xml_node child : m_nodes[name].children()) {
                if (child.name()[0] == 'p') {  // refers to a node, or to the port
                    open.emplace_back(child.child_value());
                }
            }
        }
    }
    for (const auto& [name, node] : m_nodes) {
        EXPECT_EQ(1u, reached.count(name)) << name << " isn't reached";
    }

    std::set<std::string> categories;
    for (const pugi::xml_node child : m_nodes["Root"].children("pFeature")) {
        categories.insert(child.child_value());
        EXPECT_STREQ("Category", m_nodes[child.child_value()].name());
    }
    EXPECT_THAT(categories, ContainerEq(GetParam().categories));
}

TEST_P(Descriptions, TellAPersonWhatEachFeatureIs)
{
    std::map<std::string, int> timesListed;
    for (const pugi::xml_node category : m_root.children("Category")) {
        for (const pugi::xml_node feature : category.children("pFeature")) {
            ++timesListed[feature.child_value()];
        }
    }
    for (const auto& [name, node] : m_nodes) {
        // What a person doesn't see serves what is seen.
        if (std::string(node.child_value("Visibility")) == "Invisible") {
            EXPECT_EQ(0, timesListed[name]) << name;
            continue;
        }
        EXPECT_EQ(name == "Root" ? 0 : 1, timesListed[name]) << name << " belongs to one category";
        for (const char* text : {"ToolTip", "Description", "DisplayName", "Visibility"}) {
            EXPECT_STRNE("", node.child_value(text)) << name << " has no " << text;
        }
        std::set<std::string> values;
        for (const pugi::xml_node entry : node.children("EnumEntry")) {
            EXPECT_TRUE(values.insert(entry.child_value("Value")).second) << name;
        }
        EXPECT_EQ(std::string(node.name()) == "Enumeration", !values.empty()) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(Modules, Descriptions, testing::ValuesIn(kModules), [](const auto& module) {
    return std::string(module.param.port);
});

}  // namespace
