/// The typed answers of all GetInfo functions.
#pragma once

#include <string>

namespace GenTL {

/// Writes one value into the consumer's buffer, or the size it needs, with its INFO_DATATYPE code.
///
/// Stateless; entered from any thread. Pass texts as std::string: a const char* would pick the bool overload.
class InfoUtility
{
public:
    virtual ~InfoUtility() = default;

    /// piType and piSize are required (GC_ERR_INVALID_PARAMETER). A null pBuffer asks for the size. A
    /// buffer that is too small gives GC_ERR_BUFFER_TOO_SMALL and leaves *piSize. With quiet no error is
    /// cached.
    virtual int SetInfo(const std::string& value,
                        int* piType,
                        void* pBuffer,
                        unsigned long* piSize,
                        bool quiet = false) const;
    virtual int SetInfo(
        unsigned int value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet = false) const;
    virtual int SetInfo(
        int value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet = false) const;
    virtual int SetInfo(
        unsigned long value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet = false) const;
    virtual int SetInfo(
        long value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet = false) const;
    virtual int SetInfo(
        bool value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet = false) const;
    /// Answers the pointer itself, not the text behind it.
    virtual int SetInfo(
        char* value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet = false) const;
    virtual int SetInfo(
        double value, int* piType, void* pBuffer, unsigned long* piSize, bool quiet = false) const;

    /// Reads a value of type T that comes in. Another type code gives GC_ERR_INVALID_PARAMETER, a null or too
    /// short buffer GC_ERR_INVALID_BUFFER. T: std::string (the buffer holds a std::string object), short,
    /// int, long with their unsigned forms, float, double, void*, char*, bool.
    template <typename T>
    int GetInfo(int iType, const void* pBuffer, unsigned long iSize, T& out, bool quiet = false) const;
};

}  // namespace GenTL
