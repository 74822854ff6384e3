#include "modules/BaseModule.h"

#include "frame/Error.h"
#include "frame/PortableUtil.h"

#include <cstdio>

namespace GenTL {
namespace {

struct NamedCommand
{
    int command;
    const char* name;
};

constexpr NamedCommand kUnansweredUrlInfo[] = {
    {URL_INFO_FILE_VER_MAJOR,        "URL_INFO_FILE_VER_MAJOR"       },
    {URL_INFO_FILE_VER_MINOR,        "URL_INFO_FILE_VER_MINOR"       },
    {URL_INFO_FILE_VER_SUBMINOR,     "URL_INFO_FILE_VER_SUBMINOR"    },
    {URL_INFO_FILE_SHA1_HASH,        "URL_INFO_FILE_SHA1_HASH"       },
    {URL_INFO_FILE_REGISTER_ADDRESS, "URL_INFO_FILE_REGISTER_ADDRESS"},
    {URL_INFO_FILE_SIZE,             "URL_INFO_FILE_SIZE"            },
    {URL_INFO_SCHEME,                "URL_INFO_SCHEME"               },
    {URL_INFO_FILENAME,              "URL_INFO_FILENAME"             },
    {URL_INFO_CUSTOM_ID,             "URL_INFO_CUSTOM_ID"            },
};

}  // namespace

int BaseModule::ReadPort(unsigned long, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int BaseModule::WritePort(unsigned long, const void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int BaseModule::GetPortURL(char*, unsigned long*) const
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int BaseModule::RegisterEvent(int, void**)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int BaseModule::UnregisterEvent(int)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int BaseModule::GetNumPortURLs(unsigned int*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int BaseModule::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int BaseModule::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int BaseModule::GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    const auto answer = [&](const auto& value) { return m_info.SetInfo(value, piType, pBuffer, piSize); };
    switch (iInfoCmd) {
        case PORT_INFO_ID:
            return answer(m_portInfo.id);
        case PORT_INFO_VENDOR:
            return answer(m_portInfo.vendor);
        case PORT_INFO_MODEL:
            return answer(m_portInfo.model);
        case PORT_INFO_TLTYPE:
            return answer(m_portInfo.tlType);
        case PORT_INFO_MODULE:
            return answer(m_portInfo.module);
        case PORT_INFO_LITTLE_ENDIAN:
            return answer(m_portInfo.littleEndian);
        case PORT_INFO_BIG_ENDIAN:
            return answer(m_portInfo.bigEndian);
        case PORT_INFO_ACCESS_READ:
            return answer(m_portInfo.accessRead);
        case PORT_INFO_ACCESS_WRITE:
            return answer(m_portInfo.accessWrite);
        case PORT_INFO_ACCESS_NA:
            return answer(m_portInfo.accessNotAvailable);
        case PORT_INFO_ACCESS_NI:
            return answer(m_portInfo.accessNotImplemented);
        case PORT_INFO_VERSION:
            return answer(m_portInfo.version);
        case PORT_INFO_PORTNAME:
            return answer(m_portInfo.portName);
        default:
            return Raise(
                GC_ERR_INVALID_INDEX,
                "PORT_INFO_CMD must be one of :\n"
                "GenTL::PORT_INFO_ID, GenTL::PORT_INFO_VENDOR, GenTL::PORT_INFO_MODEL, \n"
                "GenTL::PORT_INFO_TLTYPE, GenTL::PORT_INFO_MODULE, GenTL::PORT_INFO_LITTLE_ENDIAN, \n"
                "GenTL::PORT_INFO_BIG_ENDIAN, GenTL::PORT_INFO_ACCESS_READ, GenTL::PORT_INFO_ACCESS_WRITE, \n"
                "GenTL::PORT_INFO_ACCESS_NA, GenTL::PORT_INFO_ACCESS_NI, GenTL::PORT_INFO_VERSION , \n"
                "GenTL::PORT_INFO_PORTNAME");
    }
}

int BaseModule::GetPortURLInfo(
    unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (iURLIndex != 0) {
        return Raise(GC_ERR_INVALID_INDEX, "iURLIndex is out of range");
    }
    switch (iInfoCmd) {
        case URL_INFO_URL: {
            if (piType == nullptr) {
                return Raise(GC_ERR_INVALID_PARAMETER, "piType==nullptr");
            }
            const int code = GetPortURL(static_cast<char*>(pBuffer), piSize);
            if (code != GC_ERR_SUCCESS) {
                return AppendName(code);
            }
            *piType = INFO_DATATYPE_STRING;
            return GC_ERR_SUCCESS;
        }
        case URL_INFO_SCHEMA_VER_MAJOR:
            return m_info.SetInfo(m_urlInfo.schemaVersionMajor, piType, pBuffer, piSize);
        case URL_INFO_SCHEMA_VER_MINOR:
            return m_info.SetInfo(m_urlInfo.schemaVersionMinor, piType, pBuffer, piSize);
        default:
            break;
    }
    for (const NamedCommand& unanswered : kUnansweredUrlInfo) {
        if (unanswered.command == iInfoCmd) {
            return Raise(GC_ERR_NOT_IMPLEMENTED,
                         std::string("URL_INFO_CMD ") + unanswered.name + " is not implemented");
        }
    }
    return Raise(GC_ERR_INVALID_INDEX, kUrlInfoCommands);
}

int BaseModule::AnswerOneURL(unsigned int* piNumURLs, const char* function, int line)
{
    if (piNumURLs == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piNumURLs==nullptr", function, line);
    }
    *piNumURLs = 1;
    return GC_ERR_SUCCESS;
}

int BaseModule::AnswerLocalURL(const char* fileName,
                               std::size_t xmlSize,
                               char* sURL,
                               unsigned long* piSize,
                               const char* function,
                               int line)
{
    if (piSize == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piSize==nullptr", function, line);
    }
    char url[4096] = {};
    const int length = snprintf(url, sizeof url, "local:%s.xml;F0F00000;%X?SchemaVersion=1.0.0", fileName,
                                static_cast<unsigned int>(xmlSize));
    if (length < 0) {
        return Raise(GC_ERR_ERROR, "snprintf returned with", function, line);
    }
    // The URL ends in two NULs.
    return AnswerText({url, static_cast<std::size_t>(length) + 2}, "len", "iSize", sURL, piSize, function,
                      line);
}

int BaseModule::AnswerText(std::string_view bytes,
                           const char* sizeName,
                           const char* argumentName,
                           char* sText,
                           unsigned long* piSize,
                           const char* function,
                           int line)
{
    if (piSize == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piSize==nullptr", function, line);
    }
    if (sText != nullptr) {
        if (bytes.size() > *piSize) {
            return Raise(GC_ERR_BUFFER_TOO_SMALL,
                         "*piSize=" + std::to_string(*piSize) + " < " + sizeName + "=" +
                             std::to_string(bytes.size()) + ". " + argumentName + " must be >= " + sizeName,
                         function, line);
        }
        memcpy_portable(sText, *piSize, bytes.data(), bytes.size());
    }
    *piSize = bytes.size();
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
