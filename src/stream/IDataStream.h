/// The data stream as the entry points see it.
#pragma once

#include "frame/GenTL.h"
#include "modules/IBaseModule.h"

#include <cstddef>

namespace GenTL {

class IHALGvsp;

/// The operations follow the DS functions one to one; codes and argument rules are told at DataStream.
class IDataStream : public IBaseModule
{
public:
    virtual int Open(IHALGvsp* pHal) = 0;
    virtual int Close() = 0;
    virtual int AnnounceBuffer(void* pBuffer, std::size_t iSize, void* pPrivate, void** phBuffer) = 0;
    virtual int AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer) = 0;
    virtual int QueueBuffer(void* hBuffer) = 0;
    virtual int RevokeBuffer(void* hBuffer, void** ppBuffer, void** ppPrivate) = 0;
    virtual int FlushQueue(int iOperation) = 0;
    virtual int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const = 0;
    virtual int GetBufferID(unsigned iIndex, void** phBuffer) const = 0;
    virtual int GetBufferInfo(
        void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const = 0;
    virtual int StartAcquisition(int iStartFlags, unsigned long iNumToAcquire) = 0;
    virtual int StopAcquisition(int iStopFlags) = 0;
    virtual int GetBufferChunkData(void* hBuffer,
                                   S_SINGLE_CHUNK_DATA* pChunkData,
                                   std::size_t* piNumChunks) = 0;
    virtual int GetParentDev(void** phDevice) const = 0;
    virtual bool IsOpen() const = 0;
    virtual int WaitForNextLeader(unsigned long iTimeout) = 0;
    virtual int ResetWaitForNextLeader() = 0;
    virtual int SetupResendRetryParams(unsigned long iRetries,
                                       double frameRate,
                                       const char* sFirst,
                                       const char* sSecond) = 0;
    virtual int SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize) = 0;
    virtual int WaitOnNewBuffer(void** phBuffer, unsigned long iTimeout) = 0;
    virtual int KillWaitForNewBuffer() = 0;
    virtual int FlushQueue_ACQ_QUEUE_INPUT_TO_OUTPUT_() = 0;
    virtual int FlushQueue_ACQ_QUEUE_OUTPUT_DISCARD_() = 0;
    virtual int FlushQueue_ACQ_QUEUE_ALL_TO_INPUT_() = 0;
    virtual int FlushQueue_ACQ_QUEUE_UNQUEUED_TO_INPUT_() = 0;
    virtual int FlushQueue_ACQ_QUEUE_ALL_DISCARD_() = 0;
};

}  // namespace GenTL
