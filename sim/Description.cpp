#include "sim/Description.h"

#include "sim/Registers.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace sim {
namespace {

struct Entry
{
    const char* name;
    std::uint32_t value;
};

std::string Hex(std::uint32_t value)
{
    std::array<char, 12> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", value);
    return text.data();
}

std::string Element(const char* name, const std::string& content)
{
    return std::string("<") + name + ">" + content + "</" + name + ">\n";
}

std::string Escaped(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

/// Writes the nodes, each feature with the register behind it.
class Writer
{
public:
    explicit Writer(bool bigEndian) : m_endianess(bigEndian ? "BigEndian" : "LittleEndian") {}

    const std::string& Text() const { return m_text; }

    void Category(const char* name, const std::vector<const char*>& features)
    {
        Open("Category", name);
        for (const char* pFeature : features) {
            m_text += Element("pFeature", pFeature);
        }
        Close("Category");
    }

    /// \param limits elements for minimum, maximum and step
    void Integer(const char* name,
                 std::uint32_t address,
                 const char* access,
                 const std::string& limits = "",
                 bool locked = false)
    {
        Open("Integer", name);
        Lock(locked);
        m_text += Element("pValue", Reg(name)) + limits;
        Close("Integer");
        Register("IntReg", name, address, access, Element("Sign", "Unsigned") + Endianess());
    }

    void Float(const char* name, std::uint32_t address, const std::string& limitsAndUnit)
    {
        Open("Float", name);
        m_text += Element("pValue", Reg(name)) + limitsAndUnit;
        Close("Float");
        Register("FloatReg", name, address, "RW", Endianess());
    }

    void Enumeration(const char* name, std::uint32_t address, const std::vector<Entry>& entries, bool locked)
    {
        EnumerationNode(name, entries, locked);
        Register("IntReg", name, address, "RW", Element("Sign", "Unsigned") + Endianess());
    }

    /// One register per value of another enumeration.
    void SelectedEnumeration(const char* name,
                             const char* selector,
                             std::uint32_t firstAddress,
                             const std::vector<Entry>& entries)
    {
        EnumerationNode(name, entries, false);
        m_text += "<IntReg Name=\"" + Reg(name) + "\" NameSpace=\"Custom\">\n" +
                  Element("Address", Hex(firstAddress)) + "<pIndex Offset=\"4\">" + Reg(selector) +
                  "</pIndex>\n" + Access(4, "RW") + Element("Sign", "Unsigned") + Endianess();
        Close("IntReg");
    }

    void Boolean(const char* name, std::uint32_t address)
    {
        Open("Boolean", name);
        Lock(true);
        m_text += Element("pValue", Reg(name)) + Element("OnValue", "1") + Element("OffValue", "0");
        Close("Boolean");
        Register("IntReg", name, address, "RW", Element("Sign", "Unsigned") + Endianess());
    }

    void Command(const char* name, std::uint32_t address)
    {
        Open("Command", name);
        m_text += Element("pValue", Reg(name)) + Element("CommandValue", "1");
        Close("Command");
        Register("IntReg", name, address, "WO", Element("Sign", "Unsigned") + Endianess());
    }

    void String(const char* name, std::uint32_t address, std::uint32_t size, const char* access)
    {
        Open("StringReg", name);
        m_text += Location(address, size, access);
        Close("StringReg");
    }

    void Raw(const char* text) { m_text += text; }

private:
    static std::string Reg(const char* name) { return std::string(name) + "Reg"; }
    std::string Endianess() const { return Element("Endianess", m_endianess); }

    static std::string Location(std::uint32_t address, std::uint32_t size, const char* access)
    {
        return Element("Address", Hex(address)) + Access(size, access);
    }
    static std::string Access(std::uint32_t size, const char* access)
    {
        return Element("Length", std::to_string(size)) + Element("AccessMode", access) +
               Element("pPort", "Device") + Element("Cachable", "NoCache");
    }

    void EnumerationNode(const char* name, const std::vector<Entry>& entries, bool locked)
    {
        Open("Enumeration", name);
        Lock(locked);
        for (const Entry& entry : entries) {
            m_text += std::string("<EnumEntry Name=\"") + entry.name + "\">\n" +
                      Element("Value", std::to_string(entry.value)) + "</EnumEntry>\n";
        }
        m_text += Element("pValue", Reg(name));
        Close("Enumeration");
    }

    void Open(const char* kind, const std::string& name)
    {
        m_text += std::string("<") + kind + " Name=\"" + name + "\" NameSpace=\"Standard\">\n";
    }
    void Close(const char* kind) { m_text += std::string("</") + kind + ">\n"; }

    void Lock(bool locked)
    {
        if (locked) {
            m_text += Element("pIsLocked", "TLParamsLocked");
        }
    }

    void Register(const char* kind,
                  const char* feature,
                  std::uint32_t address,
                  const char* access,
                  const std::string& tail)
    {
        m_text += std::string("<") + kind + " Name=\"" + Reg(feature) + "\" NameSpace=\"Custom\">\n" +
                  Location(address, 4, access) + tail;
        Close(kind);
    }

    const char* m_endianess;
    std::string m_text;
};

void WriteCategories(Writer& writer)
{
    writer.Category("Root", {"DeviceControl", "ImageFormatControl", "AcquisitionControl", "EventControl",
                             "TransportLayerControl"});
    writer.Category("DeviceControl", {"DeviceVendorName", "DeviceModelName", "DeviceVersion",
                                      "DeviceSerialNumber", "DeviceUserID"});
    writer.Category("ImageFormatControl",
                    {"SensorWidth", "SensorHeight", "WidthMax", "HeightMax", "Width", "Height", "OffsetX",
                     "OffsetY", "PixelFormat", "TestPattern", "ChunkModeActive", "ChunkForm"});
    writer.Category("AcquisitionControl",
                    {"AcquisitionMode", "AcquisitionStart", "AcquisitionStop", "AcquisitionFrameCount",
                     "AcquisitionFrameRate", "TriggerMode", "TriggerSoftware"});
    writer.Category("EventControl",
                    {"EventSelector", "EventNotification", "EventDataSize", "TestEventGenerate"});
    writer.Category("TransportLayerControl", {"PayloadSize", "GevHeartbeatTimeout", "GevSCPSPacketSize",
                                              "GevSCPD", "ResendRequestCount", "ResentPacketCount"});
}

std::string Limits(const char* minimum, const char* pMaximum)
{
    return Element("Min", minimum) + Element("pMax", pMaximum) + Element("Inc", "1");
}

void WriteImageFormat(Writer& writer)
{
    writer.Integer("SensorWidth", Feature::kSensorWidth, "RO");
    writer.Integer("SensorHeight", Feature::kSensorHeight, "RO");
    writer.Integer("WidthMax", Feature::kWidthMax, "RO");
    writer.Integer("HeightMax", Feature::kHeightMax, "RO");
    writer.Integer("Width", Feature::kWidth, "RW", Limits("1", "WidthMax"), true);
    writer.Integer("Height", Feature::kHeight, "RW", Limits("1", "HeightMax"), true);
    writer.Integer("OffsetX", Feature::kOffsetX, "RW", Limits("0", "SensorWidth"), true);
    writer.Integer("OffsetY", Feature::kOffsetY, "RW", Limits("0", "SensorHeight"), true);
    writer.Enumeration("PixelFormat", Feature::kPixelFormat,
                       {
                           {"Mono8",    static_cast<std::uint32_t>(PixelFormat::Mono8)   },
                           {"BayerRG8", static_cast<std::uint32_t>(PixelFormat::BayerRG8)},
                           {"Mono16",   static_cast<std::uint32_t>(PixelFormat::Mono16)  },
                           {"RGB8",     static_cast<std::uint32_t>(PixelFormat::RGB8)    },
    },
                       true);
    writer.Enumeration("TestPattern", Feature::kTestPattern,
                       {
                           {"Black",       0},
                           {"MovingRings", 1},
                           {"MovingNoise", 2}
    },
                       true);
    writer.Boolean("ChunkModeActive", Feature::kChunkModeActive);
    writer.Enumeration("ChunkForm", Feature::kChunkForm,
                       {
                           {"ImageWithChunks", 0},
                           {"ChunkData",       1}
    },
                       true);
}

void WriteAcquisition(Writer& writer)
{
    writer.Enumeration("AcquisitionMode", Feature::kAcquisitionMode,
                       {
                           {"Continuous",  0},
                           {"SingleFrame", 1},
                           {"MultiFrame",  2}
    },
                       true);
    writer.Command("AcquisitionStart", Feature::kAcquisitionStart);
    writer.Command("AcquisitionStop", Feature::kAcquisitionStop);
    writer.Integer("AcquisitionFrameCount", Feature::kAcquisitionFrameCount, "RW", Element("Min", "1"));
    writer.Float("AcquisitionFrameRate", Feature::kAcquisitionFrameRate,
                 Element("Min", "0.0") + Element("Max", "100000.0") + Element("Unit", "Hz"));
    writer.Enumeration("TriggerMode", Feature::kTriggerMode,
                       {
                           {"Off", 0},
                           {"On",  1}
    },
                       false);
    writer.Command("TriggerSoftware", Feature::kTriggerSoftware);
}

void WriteEvents(Writer& writer)
{
    writer.Enumeration("EventSelector", Feature::kEventSelector,
                       {
                           {"AcquisitionStart", 0},
                           {"AcquisitionEnd",   1},
                           {"ExposureEnd",      2},
                           {"Test",             3}
    },
                       false);
    writer.SelectedEnumeration("EventNotification", "EventSelector", Feature::kEventNotification,
                               {
                                   {"Off", 0},
                                   {"On",  1}
    });
    writer.Integer("EventDataSize", Feature::kEventDataSize, "RW",
                   Element("Min", "0") + Element("Max", "552"));
    writer.Command("TestEventGenerate", Feature::kTestEventGenerate);
}

void WriteTransport(Writer& writer)
{
    writer.Integer("PayloadSize", Feature::kPayloadSize, "RO");
    writer.Integer("GevHeartbeatTimeout", Bootstrap::kHeartbeatTimeout, "RW", Element("Min", "0"));
    writer.Integer("GevSCPD", Bootstrap::kStreamPacketDelay, "RW", Element("Min", "0"));
    writer.Integer("ResendRequestCount", Feature::kResendRequestCount, "RO");
    writer.Integer("ResentPacketCount", Feature::kResentPacketCount, "RO");
    // The size shares its register with flags: a masked register of its own keeps them.
    writer.Raw(
        "<Integer Name=\"GevSCPSPacketSize\" NameSpace=\"Standard\">\n"
        "<pIsLocked>TLParamsLocked</pIsLocked>\n"
        "<pValue>GevSCPSPacketSizeReg</pValue>\n"
        "<Min>576</Min>\n<Max>16000</Max>\n<Inc>4</Inc>\n"
        "</Integer>\n");
}

}  // namespace

std::string MakeDescription(const Config& config)
{
    Writer writer(config.bigEndian);
    writer.Raw(
        "<!-- Each feature is followed by its register. TLParamsLocked is set by the consumer while it "
        "streams. -->\n");
    WriteCategories(writer);
    writer.String("DeviceVendorName", Bootstrap::kVendor, 32, "RO");
    writer.String("DeviceModelName", Bootstrap::kModel, 32, "RO");
    writer.String("DeviceVersion", Bootstrap::kDeviceVersion, 32, "RO");
    writer.String("DeviceSerialNumber", Bootstrap::kSerialNumber, 16, "RO");
    writer.String("DeviceUserID", Bootstrap::kUserName, 16, "RW");
    WriteImageFormat(writer);
    WriteAcquisition(writer);
    WriteEvents(writer);
    WriteTransport(writer);
    const std::string endianess = config.bigEndian ? "BigEndian" : "LittleEndian";
    // Bits are counted from the most significant one where the register is big-endian.
    const std::string bits = config.bigEndian ? Element("LSB", "31") + Element("MSB", "16")
                                              : Element("LSB", "0") + Element("MSB", "15");
    const std::string head =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<RegisterDescription ModelName=\"" +
        Escaped(config.model) + "\" VendorName=\"" + Escaped(config.vendor) +
        "\" ToolTip=\"Simulated camera\" StandardNameSpace=\"GEV\" SchemaMajorVersion=\"1\" "
        "SchemaMinorVersion=\"1\""
        " SchemaSubMinorVersion=\"0\" MajorVersion=\"1\" MinorVersion=\"0\" SubMinorVersion=\"0\""
        " ProductGuid=\"5B0E7C52-1D07-4D1B-9B6B-6C8F0B5E2C11\" "
        "VersionGuid=\"A3F0D5C6-0B8B-4A1E-8C55-0F2A77C3D941\""
        " xmlns=\"http://www.genicam.org/GenApi/Version_1_1\""
        " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
        " xsi:schemaLocation=\"http://www.genicam.org/GenApi/Version_1_1 GenApiSchema_Version_1_1.xsd\">\n";
    const std::string packetSize =
        "<MaskedIntReg Name=\"GevSCPSPacketSizeReg\" NameSpace=\"Custom\">\n" +
        Element("Address", Hex(Bootstrap::kStreamPacketSize)) + Element("Length", "4") +
        Element("AccessMode", "RW") + Element("pPort", "Device") + Element("Cachable", "NoCache") + bits +
        Element("Sign", "Unsigned") + Element("Endianess", endianess) + "</MaskedIntReg>\n";
    return head + writer.Text() + packetSize +
           "<Integer Name=\"TLParamsLocked\" NameSpace=\"Standard\">\n<Visibility>Invisible</Visibility>\n"
           "<Value>0</Value>\n<Min>0</Min>\n<Max>1</Max>\n</Integer>\n"
           "<Port Name=\"Device\" NameSpace=\"Standard\">\n</Port>\n</RegisterDescription>\n";
}

}  // namespace sim
