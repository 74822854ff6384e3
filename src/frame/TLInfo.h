/// What the library says of itself, with and without an open System.
#pragma once

#include <string>

namespace GenTL {

class InfoUtility;

/// The values behind the TL_INFO commands. name and pathname are those of the library's file.
struct TLInfo
{
    std::string id = "NORVO_GenTL_1_5";
    std::string vendor = "Norvo Imaging Inc";
    std::string model = "GenTL Producer";
    std::string version = "0.1.43.0";
    std::string tlType = "GEV";
    std::string name;
    std::string pathname;
    std::string displayName = "Norvo Imaging Inc GenTL Module";
    int charEncoding = 0;  // ASCII
    unsigned int versionMajor = 1;
    unsigned int versionMinor = 5;
};

/// Answers one TL_INFO command through SetInfo, whose code it returns; raises GC_ERR_INVALID_INDEX on any
/// other command in the name of its caller, and then sets isUnknown.
int AnswerTLInfo(const TLInfo& values,
                 const InfoUtility& info,
                 int iInfoCmd,
                 int* piType,
                 void* pBuffer,
                 unsigned long* piSize,
                 bool& isUnknown,
                 const char* function = __builtin_FUNCTION(),
                 int line = __builtin_LINE());

}  // namespace GenTL
