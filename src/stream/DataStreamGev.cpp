#include "stream/DataStreamGev.h"

#include "buffers/Buffer.h"
#include "buffers/HandleQueue.h"
#include "buffers/OpenedDataStreamGevStateManager.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/IHALGev.h"
#include "gev/SignalBlock.h"
#include "stream/GrabCommon.h"
#include "stream/HALGvsp.h"
#include "stream/NoCopyGrab.h"
#include "stream/ResendGrab.h"
#include "stream/StreamStartParams.h"

#include <boost/thread/lock_guard.hpp>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;

}  // namespace

DataStreamGev::DataStreamGev(IHALGev* pHal, void* device, void* parent, unsigned index, int accessMode)
    : GevStream(pHal, device, parent, index, accessMode)
{
}

DataStreamGev::~DataStreamGev()
{
    StopGrabThread();
    m_pLeaderSeen->End();
}

int DataStreamGev::CheckOpen(const char* function, int line) const
{
    return m_isOpen ? static_cast<int>(GC_ERR_SUCCESS)
                    : Raise(GC_ERR_INVALID_HANDLE, "DataStream is not open", function, line);
}

int DataStreamGev::Open(IHALGvsp* pHal)
{
    const Lock life(m_lifeMutex);
    if (m_isOpen) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "DataStreamGev is already open");
    }
    SetHal(pHal != nullptr ? pHal : new HALGvsp());
    m_pLeaderSeen->Begin();
    m_isOpen = true;
    return m_pStateManager->SetDriverType(m_pHalGvsp->GetDriverType());
}

void DataStreamGev::EndLeaderWaits()
{
    m_pLeaderSeen->End();
}

// ---- Buffers

int DataStreamGev::AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::AllocAndAnnounceBuffer(iSize, pPrivate, phBuffer);
}

int DataStreamGev::QueueBuffer(void* hBuffer)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (m_pHalGvsp->GetDriverType() != kDriverLwf) {
        return DataStream::QueueBuffer(hBuffer);
    }
    if (const int code = CheckHandle(hBuffer); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    Buffer* pBuffer = CastHandleToBufferPtr(hBuffer);
    if (pBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_HANDLE, "pBuffer==nullptr");
    }
    pBuffer->m_state = IN_DRIVER;
    return m_pHalGvsp->QueueImageBufferInLwfDriver(static_cast<GenTLHandle*>(hBuffer));
}

int DataStreamGev::RevokeBuffer(void* hBuffer, void** ppBuffer, void** ppPrivate)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    auto* handle = static_cast<GenTLHandle*>(hBuffer);
    if (IsLentAfterHandOff(hBuffer)) {
        m_bufferInHand.Recall(handle);
    }
    const Lock inFlight(m_inFlightMutex);
    return DataStream::RevokeBuffer(hBuffer, ppBuffer, ppPrivate);
}

/// Under RevokeBuffer, so m_inFlightMutex is held. An image that was in collection is lost.
void DataStreamGev::OnRevoke(GenTLHandle* hBuffer, Buffer& buffer)
{
    GrabCommon(*this).AbandonLocked(buffer);
    m_inFlightBuffers.remove(hBuffer);
}

bool DataStreamGev::IsLentAfterHandOff(void* hBuffer) const
{
    const auto* handle = static_cast<const GenTLHandle*>(hBuffer);
    const Lock inFlight(m_inFlightMutex);
    if (!m_bufferInHand.Holds(handle) || Contains(m_inFlightBuffers, handle)) {
        return false;
    }
    // While it waits in a queue it can't be revoked anyway.
    const Lock output(m_outputMutex);
    return !CastHandleToBufferPtr(hBuffer)->m_isQueued && !Contains(m_outputBuffers, handle);
}

int DataStreamGev::FlushQueue(int iOperation)
{
    if (!m_isOpen) {
        return Raise(GC_ERR_INVALID_HANDLE, "the data stream is not open");
    }
    const Lock inFlight(m_inFlightMutex);
    return DataStream::FlushQueue(iOperation);
}

int DataStreamGev::GetBufferInfo(
    void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code
                                  : DataStream::GetBufferInfo(hBuffer, iInfoCmd, piType, pBuffer, piSize);
}

// ---- Information

int DataStreamGev::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const
{
    if (const std::optional<int> own = m_settings.GetInfo(iInfoCmd, piType, pBuffer, piSize); own) {
        return *own;
    }
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetInfo(iInfoCmd, piType, pBuffer, piSize);
}

int DataStreamGev::SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize)
{
    if (const std::optional<int> own = m_settings.SetInfo(iInfoCmd, iType, pBuffer, iSize); own) {
        return *own;
    }
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::SetInfo(iInfoCmd, iType, pBuffer, iSize);
}

// ---- Acquisition

int DataStreamGev::StartAcquisition(int iStartFlags, unsigned long iNumToAcquire)
{
    const Lock life(m_lifeMutex);
    if (const int code = CheckStart(iStartFlags, iNumToAcquire); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (const int code = StartHal(iStartFlags); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    if (const int code = m_pStateManager->SetDriverType(m_pHalGvsp->GetDriverType());
        code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    return StartGrabThread();
}

int DataStreamGev::CheckStart(int iStartFlags, unsigned long iNumToAcquire) const
{
    constexpr const char* kFunction = "StartAcquisition";
    if (const int code = CheckOpen(kFunction); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (m_isGrabbing) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "the acquisition engine is already grabbing", kFunction);
    }
    if (NumAnnounced() < m_bufAnnounceMin) {
        return Raise(GC_ERR_INVALID_BUFFER,
                     "the announced buffers is less then the min allowed. min allowed is " +
                         std::to_string(m_bufAnnounceMin),
                     kFunction);
    }
    if (iNumToAcquire == 0) {
        return Raise(GC_ERR_INVALID_PARAMETER, "iNumToAcquire must be > 0", kFunction);
    }
    if (iStartFlags != ACQ_START_FLAGS_DEFAULT && iStartFlags != ACQ_START_FLAGS_GVSP_LEGACY_ID) {
        return Raise(GC_ERR_INVALID_INDEX,
                     "iStartFlags must be one of: ACQ_START_FLAGS_DEFAULT, ACQ_START_FLAGS_GVSP_LEGACY_ID",
                     kFunction);
    }
    return GC_ERR_SUCCESS;
}

int DataStreamGev::StartHal(int iStartFlags)
{
    m_pHalGev->SetGvcpRetries(kGvcpRetries);
    const bool asksForLegacyId = iStartFlags == ACQ_START_FLAGS_GVSP_LEGACY_ID;
    if (const int code =
            m_pHalGvsp->ConfigureExtendedId(m_pHalGev, m_hDevice, asksForLegacyId, m_streamInfo.m_extendedId);
        code != GC_ERR_SUCCESS) {
        return code;
    }
    bool resend = m_streamInfo.m_packetResendEnable;
    if (m_pHalGvsp->GetCameraPacketResendSupport(m_pHalGev, m_hDevice, resend) != GC_ERR_SUCCESS) {
        m_streamInfo.m_packetResendEnable = false;
    } else if (resend) {
        m_pHalGvsp->SetDriverType(kDriverUdpSocket);
    }
    m_firstBufferSize = FirstBufferSize();
    StreamStartParams params = MakeStartParams(m_firstBufferSize);
    if (const int code = m_pHalGvsp->Start(m_pHalGev, m_hDevice, params); code != GC_ERR_SUCCESS) {
        return code;
    }

    m_isGrabbing = true;
    CountFromZero();
    m_streamInfo.m_packetSize = params.m_packetSize;
    m_streamInfo.m_interPacketExpiry = params.m_interPacketExpiry;
    m_streamInfo.m_bufferExpiry = params.m_bufferExpiry;
    m_streamInfo.m_resendRetries = params.m_resendRetries;
    return GC_ERR_SUCCESS;
}

int DataStreamGev::StartGrabThread()
{
    if (m_pHalGvsp->GetDriverType() != kDriverUdpSocket) {
        return StoreName(GC_ERR_IO, "StartAcquisition");
    }
    const SignalBlock noSignals;
    if (m_streamInfo.m_packetResendEnable) {
        m_grabThread = boost::thread([this] { GrabThreadResend(); });
    } else {
        // What can fail for want of memory fails here, not unseen in the thread.
        const auto pGrab = std::make_shared<NoCopyGrab>(*this);
        m_grabThread = boost::thread([pGrab] { GrabThreadNoCopy(*pGrab); });
    }
    return GC_ERR_SUCCESS;
}

void DataStreamGev::GrabThreadNoCopy(NoCopyGrab& grab)
{
    grab.Run();
}

void DataStreamGev::GrabThreadResend()
{
    ResendGrab(*this).Run();
}

int DataStreamGev::StopAcquisition(int iStopFlags)
{
    const Lock life(m_lifeMutex);
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (!m_isGrabbing) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "acquisition engine was not started");
    }
    if (const int code = CheckStopFlags(iStopFlags); code != GC_ERR_SUCCESS) {
        return code;
    }
    StopGrabThread();
    m_pLeaderSeen->Signal();  // no leader comes any more, and nobody is to wait for it
    m_isGrabbing = false;
    const int code = m_pHalGvsp->Stop(m_pHalGev, m_hDevice, m_streamInfo.m_packetSize, m_accessMode);
    m_numStarted = 0;
    m_pHalGvsp->SetDriverType(kDriverUdpSocket);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int DataStreamGev::WaitForNextLeader(unsigned long iTimeout)
{
    const std::shared_ptr<IHALGvsp> pHal = std::atomic_load(&m_pOwnHalGvsp);
    const std::shared_ptr<LeaderSignal> pLeaderSeen = m_pLeaderSeen;
    if (pHal == nullptr) {
        return CheckOpen();
    }
    return pHal->GetDriverType() == kDriverLwf ? pHal->WaitForNextLeader(iTimeout)
                                               : pLeaderSeen->Wait(iTimeout);
}

int DataStreamGev::ResetWaitForNextLeader()
{
    const std::shared_ptr<IHALGvsp> pHal = std::atomic_load(&m_pOwnHalGvsp);
    if (pHal == nullptr) {
        return CheckOpen();
    }
    if (pHal->GetDriverType() == kDriverLwf) {
        return pHal->ResetWaitForNextLeader();
    }
    m_pLeaderSeen->Reset();
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
