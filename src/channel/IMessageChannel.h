/// The message channel as the device sees it.
#pragma once

#include "modules/IBaseModule.h"

#include <cstddef>

namespace GenTL {

class IHALGvmc;

/// What a command of GetInfo asks for.
enum MC_INFO_CMD {
    MC_INFO_ID = 0,
    MC_INFO_NUM_DELIVERED = 1,
    MC_INFO_NUM_UNDERRUN = 2,
    MC_INFO_NUM_ANNOUNCED = 3,
    MC_INFO_NUM_QUEUED = 4,
    MC_INFO_NUM_AWAIT_DELIVERY = 5,
    MC_INFO_NUM_STARTED = 6,
    MC_INFO_PAYLOAD_SIZE = 7,
    MC_INFO_IS_GRABBING = 8,
    MC_INFO_TLTYPE = 9,
    MC_INFO_BUF_ANNOUNCE_MIN = 10,
    MC_INFO_BUF_ALIGNMENT = 11,
};

/// What a command of GetBufferInfo asks for. Not the numbers of BUFFER_INFO: a datagram has less to tell.
enum MC_BUFFER_INFO_CMD {
    MC_BUFFER_INFO_BASE = 0,
    MC_BUFFER_INFO_SIZE = 1,
    MC_BUFFER_INFO_USER_PTR = 2,
    MC_BUFFER_INFO_TIMESTAMP = 3,
    MC_BUFFER_INFO_SIZE_FILLED = 4,
};

/// Codes and argument rules are told at MessageChannel.
class IMessageChannel : public IBaseModule
{
public:
    virtual int Open(IHALGvmc* pHal, bool multicast) = 0;
    virtual int Close() = 0;
    virtual int AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer) = 0;
    virtual int QueueBuffer(void* hBuffer) = 0;
    virtual int RevokeBuffer(void* hBuffer, void** ppPrivate) = 0;
    virtual int GetBufferID(unsigned iIndex, void** phBuffer) const = 0;
    virtual int GetBufferInfo(
        void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) = 0;
    virtual int StartListening() = 0;
    virtual int StopListening() = 0;
    virtual int Flush() = 0;
    virtual bool IsOpen() const = 0;
    virtual int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const = 0;
    virtual int WaitOnNewBuffer(void** phBuffer, unsigned long iTimeout) = 0;
    virtual int KillWaitForNewBuffer() = 0;
};

}  // namespace GenTL
