/// What a module says of its port.
#pragma once

#include <string>

namespace GenTL {

/// The values behind the PORT_INFO commands, in their order.
struct PortInfo
{
    std::string id = "Unknown ID";
    std::string vendor = "Norvo Imaging Inc";
    std::string model = "GenTL Producer";
    std::string tlType = "GEV";
    std::string module = "Unknown Module";
    bool littleEndian = true;
    bool bigEndian = false;
    bool accessRead = true;
    bool accessWrite = true;
    bool accessNotAvailable = false;
    bool accessNotImplemented = false;
    std::string version = "0.1.43.0";
    std::string portName = "Unknown Port Name";
};

/// The values behind the URL_INFO commands. The URL itself is made on demand; the commands for the file's
/// version, hash, address, size, scheme and name are not implemented, and their values stay empty.
struct UrlInfo
{
    std::string url;
    int schemaVersionMajor = 0;
    int schemaVersionMinor = 0;
    int fileVersionMajor = 0;
    int fileVersionMinor = 0;
    int fileVersionSubMinor = 0;
    std::string fileSha1Hash;
    unsigned long fileRegisterAddress = 0;
    unsigned long fileSize = 0;
    std::string scheme;
    std::string fileName;
};

}  // namespace GenTL
