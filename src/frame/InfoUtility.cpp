#include "frame/InfoUtility.h"

#include "frame/Error.h"
#include "frame/PortableUtil.h"

#include <cstring>

namespace GenTL {
namespace {

template <typename T>
constexpr int kOutType = INFO_DATATYPE_UNKNOWN;
template <>
constexpr int kOutType<int> = INFO_DATATYPE_INT32;
template <>
constexpr int kOutType<unsigned int> = INFO_DATATYPE_UINT32;
template <>
constexpr int kOutType<long> = INFO_DATATYPE_INT64;
template <>
constexpr int kOutType<unsigned long> = INFO_DATATYPE_UINT64;
template <>
constexpr int kOutType<double> = INFO_DATATYPE_FLOAT64;
template <>
constexpr int kOutType<char*> = INFO_DATATYPE_PTR;
template <>
constexpr int kOutType<bool> = INFO_DATATYPE_BOOL8;

template <typename T>
constexpr int kInType = kOutType<T>;
template <>
constexpr int kInType<std::string> = INFO_DATATYPE_STRING;
template <>
constexpr int kInType<short> = INFO_DATATYPE_INT16;
template <>
constexpr int kInType<unsigned short> = INFO_DATATYPE_UINT16;
template <>
constexpr int kInType<float> = INFO_DATATYPE_FLOAT64;
template <>
constexpr int kInType<void*> = INFO_DATATYPE_PTR;
template <>
constexpr int kInType<char*> = INFO_DATATYPE_BUFFER;

/// The contract common to all overloads; write(room) stores the value once it is known to fit.
/// The function name in the error text is that of the public operation, so it comes in from there.
template <typename Write>
int Answer(int type,
           unsigned long size,
           const char* sizeWord,
           Write write,
           int* piType,
           void* pBuffer,
           unsigned long* piSize,
           bool quiet,
           int line)
{
    if (piSize == nullptr || piType == nullptr) {
        return quiet ? GC_ERR_INVALID_PARAMETER
                     : Raise(GC_ERR_INVALID_PARAMETER, "either piSize=nullptr or piType=nullptr", "SetInfo",
                             line);
    }
    *piType = type;
    if (pBuffer == nullptr) {
        *piSize = size;
        return GC_ERR_SUCCESS;
    }
    if (*piSize < size) {
        return quiet ? GC_ERR_BUFFER_TOO_SMALL
                     : Raise(GC_ERR_BUFFER_TOO_SMALL,
                             "*piSize=" + std::to_string(*piSize) + " < " + sizeWord + std::to_string(size) +
                                 ". iSize must be >= len",
                             "SetInfo", line);
    }
    write(*piSize);
    *piSize = size;
    return GC_ERR_SUCCESS;
}

template <typename T>
int AnswerValue(T value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet, int line)
{
    const auto write = [&](unsigned long) { std::memcpy(pBuffer, &value, sizeof value); };
    return Answer(kOutType<T>, sizeof value, "size=", write, piType, pBuffer, piSize, quiet, line);
}

}  // namespace

int InfoUtility::SetInfo(
    const std::string& value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet) const
{
    const auto write = [&](unsigned long room) {
        std::memset(pBuffer, 0, room);
        memcpy_portable(pBuffer, room, value.c_str(), value.size() + 1);
    };
    return Answer(INFO_DATATYPE_STRING, value.size() + 1, "len=", write, piType, pBuffer, piSize, quiet,
                  __LINE__);
}

int InfoUtility::SetInfo(
    unsigned int value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet) const
{
    return AnswerValue(value, piType, pBuffer, piSize, quiet, __LINE__);
}

int InfoUtility::SetInfo(int value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet) const
{
    return AnswerValue(value, piType, pBuffer, piSize, quiet, __LINE__);
}

int InfoUtility::SetInfo(
    unsigned long value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet) const
{
    return AnswerValue(value, piType, pBuffer, piSize, quiet, __LINE__);
}

int InfoUtility::SetInfo(long value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet) const
{
    return AnswerValue(value, piType, pBuffer, piSize, quiet, __LINE__);
}

int InfoUtility::SetInfo(bool value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet) const
{
    return AnswerValue(value, piType, pBuffer, piSize, quiet, __LINE__);
}

int InfoUtility::SetInfo(char* value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet) const
{
    return AnswerValue(value, piType, pBuffer, piSize, quiet, __LINE__);
}

int InfoUtility::SetInfo(double value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet) const
{
    return AnswerValue(value, piType, pBuffer, piSize, quiet, __LINE__);
}

template <typename T>
int InfoUtility::GetInfo(int iType, const void* pBuffer, unsigned long iSize, T& out, bool quiet) const
{
    if (iType != kInType<T>) {
        return quiet ? GC_ERR_INVALID_PARAMETER : Store(GC_ERR_INVALID_PARAMETER);
    }
    if (pBuffer == nullptr || iSize < sizeof(T)) {
        return quiet ? GC_ERR_INVALID_BUFFER : Store(GC_ERR_INVALID_BUFFER);
    }
    if constexpr (std::is_same_v<T, std::string>) {
        out = *static_cast<const std::string*>(pBuffer);
    } else {
        std::memcpy(&out, pBuffer, sizeof out);
    }
    return GC_ERR_SUCCESS;
}

// NOLINTNEXTLINE(bugprone-macro-parentheses): a type
#define INSTANTIATE(T) template int InfoUtility::GetInfo<T>(int, const void*, unsigned long, T&, bool) const;
INSTANTIATE(std::string)
INSTANTIATE(short)
INSTANTIATE(unsigned short)
INSTANTIATE(int)
INSTANTIATE(unsigned int)
INSTANTIATE(long)
INSTANTIATE(unsigned long)
INSTANTIATE(float)
INSTANTIATE(double)
INSTANTIATE(void*)
INSTANTIATE(char*)
INSTANTIATE(bool)
#undef INSTANTIATE

}  // namespace GenTL
