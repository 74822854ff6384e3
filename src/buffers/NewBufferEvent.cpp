#include "buffers/NewBufferEvent.h"

#include "buffers/Buffer.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "stream/DataStream.h"

#include <boost/thread/lock_guard.hpp>

#include <algorithm>
#include <cstring>

namespace GenTL {

NewBufferEvent::NewBufferEvent(DataStream* pDataStream)
    : Event(EVENT_NEW_BUFFER, sizeof(S_EVENT_NEW_BUFFER), 256), m_pDataStream(pDataStream)
{
}

NewBufferEvent::~NewBufferEvent()
{
    m_pDataStream = nullptr;
}

int NewBufferEvent::GetData(void* pBuffer, std::size_t* piSize, std::uint64_t iTimeout)
{
    S_EVENT_NEW_BUFFER data{};
    if (piSize == nullptr) {
        return StoreName(GC_ERR_INVALID_PARAMETER);
    }
    if (pBuffer == nullptr) {
        *piSize = sizeof data;
        return GC_ERR_SUCCESS;
    }
    if (*piSize < sizeof data) {
        return StoreName(GC_ERR_BUFFER_TOO_SMALL);
    }
    // One kill aborts the next call, and only that; two without a call between them abort none.
    std::uint64_t killedOnce = 1;
    if (m_pDataStream->m_killCount.compare_exchange_strong(killedOnce, 2)) {
        return StoreName(GC_ERR_ABORT);
    }
    void* hBuffer = nullptr;
    if (const int code = m_pDataStream->WaitOnNewBuffer(&hBuffer, iTimeout); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    data.BufferHandle = hBuffer;
    if (!ReadUserPointer(hBuffer, data.pUserPointer)) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    std::memcpy(pBuffer, &data, sizeof data);
    *piSize = sizeof data;
    ++m_numFired;
    return GC_ERR_SUCCESS;
}

/// False when another thread has revoked the buffer since it left the output queue. What stands in the
/// announced vector is alive as long as its mutex is held.
bool NewBufferEvent::ReadUserPointer(void* hBuffer, void*& pUserPointer) const
{
    const boost::lock_guard<boost::recursive_mutex> lock(m_pDataStream->m_announcedMutex);
    const auto& announced = m_pDataStream->m_announcedBuffers;
    if (std::find(announced.begin(), announced.end(), hBuffer) == announced.end()) {
        return false;
    }
    pUserPointer = CastHandleToBufferPtr(hBuffer)->m_pUserPointer;
    return true;
}

int NewBufferEvent::GetDataInfo(const void* pInBuffer,
                                std::size_t iInSize,
                                int iInfoCmd,
                                int* piType,
                                void* pOutBuffer,
                                std::size_t* piOutSize) const
{
    return AnswerFixedTexts(pInBuffer, iInSize, iInfoCmd, piType, pOutBuffer, piOutSize);
}

int NewBufferEvent::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize)
{
    if (iInfoCmd == EVENT_NUM_IN_QUEUE) {
        const boost::lock_guard<boost::mutex> lock(m_pDataStream->m_outputMutex);
        m_numInQueue = m_pDataStream->m_outputBuffers.size();
    }
    return Event::GetInfo(iInfoCmd, piType, pBuffer, piSize);
}

int NewBufferEvent::Flush() const
{
    return m_pDataStream->FlushQueue(ACQ_QUEUE_OUTPUT_DISCARD);
}
int NewBufferEvent::Kill() const
{
    return m_pDataStream->KillWaitForNewBuffer();
}

}  // namespace GenTL
