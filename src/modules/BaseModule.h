/// The default answers of the port.
#pragma once

#include "frame/InfoUtility.h"
#include "modules/IBaseModule.h"
#include "modules/PortInfo.h"

#include <string>
#include <string_view>

namespace GenTL {

/// Common base of the modules, joined with a module's interface by ModuleOf.
///
/// Owns: the description of port and URL. Threads: any; the description is written by constructors only.
/// Locks: none.
class BaseModule : public IBaseModule
{
public:
    // Not implemented here: stored as GC_ERR_NOT_IMPLEMENTED.
    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    /// Any PORT_INFO command; others give GC_ERR_INVALID_INDEX.
    int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    /// URL and schema version of URL 0; the other URL_INFO commands give GC_ERR_NOT_IMPLEMENTED.
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;

protected:
    BaseModule() = default;

    /// The answer to a URL_INFO command that doesn't exist.
    static constexpr const char* kUrlInfoCommands =
        "URL_INFO_CMD must be one of :\n"
        "GenTL::URL_INFO_URL, GenTL::URL_INFO_SCHEMA_VER_MAJOR, GenTL::URL_INFO_SCHEMA_VER_MINOR, \n"
        "GenTL::URL_INFO_FILE_VER_MAJOR, GenTL::URL_INFO_FILE_VER_MINOR, GenTL::URL_INFO_FILE_VER_SUBMINOR, "
        "\n"
        "GenTL::URL_INFO_FILE_SHA1_HASH, GenTL::URL_INFO_FILE_REGISTER_ADDRESS, GenTL::URL_INFO_FILE_SIZE, \n"
        "GenTL::URL_INFO_SCHEME, GenTL::URL_INFO_FILENAME, GenTL::URL_INFO_CUSTOM_ID";

    /// GetNumPortURLs of a module with one URL.
    static int AnswerOneURL(unsigned int* piNumURLs,
                            const char* function = __builtin_FUNCTION(),
                            int line = __builtin_LINE());
    /// GetPortURL of a module whose description of xmlSize bytes stands in its own register space.
    static int AnswerLocalURL(const char* fileName,
                              std::size_t xmlSize,
                              char* sURL,
                              unsigned long* piSize,
                              const char* function = __builtin_FUNCTION(),
                              int line = __builtin_LINE());
    /// Hands out bytes, which include their terminators, by the rule of all texts: a null sText asks for
    /// the size, a buffer too small gives GC_ERR_BUFFER_TOO_SMALL and keeps *piSize. Nothing behind the
    /// bytes is written. The names go into the error text.
    static int AnswerText(std::string_view bytes,
                          const char* sizeName,
                          const char* argumentName,
                          char* sText,
                          unsigned long* piSize,
                          const char* function = __builtin_FUNCTION(),
                          int line = __builtin_LINE());

    InfoUtility m_info;
    UrlInfo m_urlInfo;
    PortInfo m_portInfo;
};

}  // namespace GenTL
