#include "channel/RemoteDeviceEvent.h"

#include "channel/MCBuffer.h"
#include "channel/MessageChannel.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "frame/PortableUtil.h"

#include <algorithm>

namespace GenTL {

RemoteDeviceEvent::RemoteDeviceEvent(MessageChannel* pMessageChannel)
    : Event(EVENT_REMOTE_DEVICE, kEventSizeMax, 256), m_pMessageChannel(pMessageChannel)
{
}

RemoteDeviceEvent::~RemoteDeviceEvent()
{
    m_pMessageChannel = nullptr;
}

int RemoteDeviceEvent::GetData(void* pBuffer, std::size_t* piSize, std::uint64_t iTimeout)
{
    if (piSize == nullptr) {
        return StoreName(GC_ERR_INVALID_PARAMETER);
    }
    if (pBuffer == nullptr) {
        *piSize = m_eventSizeMax;
        return GC_ERR_SUCCESS;
    }
    if (*piSize < m_eventSizeMax) {
        return StoreName(GC_ERR_BUFFER_TOO_SMALL);
    }
    void* hBuffer = nullptr;
    if (const int code = m_pMessageChannel->WaitOnNewBuffer(&hBuffer, iTimeout); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    // The buffer is this thread's alone until it is queued again.
    const MCBuffer* pMCBuffer = ToMCBuffer(hBuffer);
    if (pMCBuffer == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE);
    }
    const std::size_t filled = std::min(pMCBuffer->m_sizeFilled, m_eventSizeMax);
    memcpy_portable(pBuffer, *piSize, pMCBuffer->m_pData, filled);
    *piSize = filled;
    if (const int code = m_pMessageChannel->QueueBuffer(hBuffer); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    ++m_numFired;
    return GC_ERR_SUCCESS;
}

int RemoteDeviceEvent::GetDataInfo(const void* pInBuffer,
                                   std::size_t iInSize,
                                   int iInfoCmd,
                                   int* piType,
                                   void* pOutBuffer,
                                   std::size_t* piOutSize) const
{
    return AnswerFixedTexts(pInBuffer, iInSize, iInfoCmd, piType, pOutBuffer, piOutSize);
}

int RemoteDeviceEvent::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize)
{
    if (iInfoCmd == EVENT_NUM_IN_QUEUE) {
        m_numInQueue = m_pMessageChannel->NumAwaitDelivery();
    }
    return Event::GetInfo(iInfoCmd, piType, pBuffer, piSize);
}

int RemoteDeviceEvent::Flush() const
{
    return m_pMessageChannel->Flush();
}
int RemoteDeviceEvent::Kill() const
{
    return m_pMessageChannel->KillWaitForNewBuffer();
}

}  // namespace GenTL
