/// A camera as the entry points see it.
#pragma once

#include "modules/IBaseModule.h"

#include <cstddef>

namespace GenTL {

class IHALGvsp;

/// The Dev functions, one to one.
class IDevice : public IBaseModule
{
public:
    /// iOpenFlags is a DEVICE_ACCESS_FLAGS value; hOwn becomes the parent of the streams.
    virtual int Open(int iOpenFlags, void* hOwn) = 0;
    virtual int Close() = 0;
    virtual int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) = 0;
    virtual int GetPort(void** phRemoteDevice) = 0;
    virtual int GetNumDataStreams(unsigned int* piNumDataStreams) = 0;
    virtual int GetDataStreamID(unsigned int iIndex, char* sDataStreamID, std::size_t* piSize) = 0;
    virtual int OpenDataStream(const char* sDataStreamID, void** phDataStream) = 0;
    virtual int GetParentIF(void** phIface) = 0;
    virtual int SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize) = 0;
    virtual int SendActionCommand(unsigned int iDeviceKey,
                                  unsigned int iGroupKey,
                                  unsigned int iGroupMask,
                                  unsigned long iActionTime) = 0;
    /// With a stream HAL of the caller's, which the stream takes over; null for its own.
    virtual int OpenDataStream(const char* sDataStreamID, void** phDataStream, IHALGvsp* pHal) = 0;
};

}  // namespace GenTL
