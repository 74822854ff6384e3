#include "frame/TLInfo.h"

#include "frame/Error.h"
#include "frame/InfoUtility.h"

namespace GenTL {

int AnswerTLInfo(const TLInfo& values,
                 const InfoUtility& info,
                 int iInfoCmd,
                 int* piType,
                 void* pBuffer,
                 unsigned long* piSize,
                 bool& isUnknown,
                 const char* function,
                 int line)
{
    const auto answer = [&](const auto& value) { return info.SetInfo(value, piType, pBuffer, piSize); };
    isUnknown = false;
    switch (iInfoCmd) {
        case TL_INFO_ID:
            return answer(values.id);
        case TL_INFO_VENDOR:
            return answer(values.vendor);
        case TL_INFO_MODEL:
            return answer(values.model);
        case TL_INFO_VERSION:
            return answer(values.version);
        case TL_INFO_TLTYPE:
            return answer(values.tlType);
        case TL_INFO_NAME:
            return answer(values.name);
        case TL_INFO_PATHNAME:
            return answer(values.pathname);
        case TL_INFO_DISPLAYNAME:
            return answer(values.displayName);
        case TL_INFO_CHAR_ENCODING:
            return answer(values.charEncoding);
        case TL_INFO_GENTL_VER_MAJOR:
            return answer(values.versionMajor);
        case TL_INFO_GENTL_VER_MINOR:
            return answer(values.versionMinor);
        default:
            isUnknown = true;
            return Raise(
                GC_ERR_INVALID_INDEX,
                "iInfoCmd must be one of :\n"
                "GenTL::TL_INFO_ID, GenTL::TL_INFO_VENDOR, GenTL::TL_INFO_MODEL, \n"
                "GenTL::TL_INFO_VERSION, GenTL::TL_INFO_TLTYPE, GenTL::TL_INFO_NAME, \n"
                "GenTL::TL_INFO_PATHNAME, GenTL::TL_INFO_DISPLAYNAME, GenTL::TL_INFO_CHAR_ENCODING, \n"
                "GenTL::TL_INFO_GENTL_VER_MAJOR, GenTL::TL_INFO_GENTL_VER_MINOR",
                function, line);
    }
}

}  // namespace GenTL
