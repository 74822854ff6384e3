#include "stream/DataStreamGev.h"

#include "buffers/Buffer.h"
#include "buffers/OpenedDataStreamGevStateManager.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/IHALGev.h"
#include "gev/SignalBlock.h"
#include "stream/GrabCommon.h"
#include "stream/HALGvsp.h"
#include "stream/NoCopyGrab.h"
#include "stream/ResendGrab.h"
#include "stream/StreamRegImpl.h"
#include "stream/StreamStartParams.h"
#include "xml/LocalXml.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/lock_types.hpp>

#include <algorithm>
#include <limits>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;

constexpr unsigned long kGvcpRetries = 3;

}  // namespace

DataStreamGev::DataStreamGev(IHALGev* pHal, void* device, void* parent, unsigned index, int accessMode)
    : DataStream(device, parent), m_pHalGev(pHal), m_accessMode(accessMode)
{
    m_portInfo.id = std::to_string(index);
    m_urlInfo.schemaVersionMajor = 1;
    m_bufAnnounceMin = 1;
    m_bufAlignment = 1;
    m_pStateManager = std::make_unique<OpenedDataStreamGevStateManager>(
        m_announcedBuffers, m_announcedMutex, m_inputBuffers, m_inputMutex, m_inputCondition, m_outputBuffers,
        m_outputMutex, m_outputCondition, m_numInDriver, kDriverNone, m_isGrabbing, m_pHalGvsp);
}

DataStreamGev::~DataStreamGev()
{
    StopGrabThread();
    delete m_pHalGvsp;
}

int DataStreamGev::ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize)
{
    return StreamRegImpl(this).DispatchRead(iAddress, pBuffer, piSize);
}

int DataStreamGev::WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize)
{
    return StreamRegImpl(this).DispatchWrite(iAddress, pBuffer, piSize);
}

int DataStreamGev::GetPortURL(char* sURL, unsigned long* piSize) const
{
    return AnswerLocalURL("SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1", kStreamXml.size(), sURL,
                          piSize);
}

int DataStreamGev::GetNumPortURLs(unsigned int* piNumURLs)
{
    return AnswerOneURL(piNumURLs);
}

int DataStreamGev::GetPortURLInfo(
    unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    return BaseModule::GetPortURLInfo(iURLIndex, iInfoCmd, piType, pBuffer, piSize);
}

int DataStreamGev::GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetPortInfo(iInfoCmd, piType, pBuffer, piSize);
}

int DataStreamGev::RegisterEvent(int iEventID, void** phEvent)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::RegisterEvent(iEventID, phEvent);
}

int DataStreamGev::UnregisterEvent(int iEventID)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::UnregisterEvent(iEventID);
}

int DataStreamGev::CheckOpen(const char* function, int line) const
{
    return m_isOpen ? static_cast<int>(GC_ERR_SUCCESS)
                    : Raise(GC_ERR_INVALID_HANDLE, "DataStream is not open", function, line);
}

int DataStreamGev::Open(IHALGvsp* pHal)
{
    if (m_isOpen) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "DataStreamGev is already open");
    }
    m_pHalGvsp = pHal != nullptr ? pHal : new HALGvsp();
    m_isOpen = true;
    return m_pStateManager->SetDriverType(m_pHalGvsp->GetDriverType());
}

int DataStreamGev::Close()
{
    if (!m_isOpen || m_isGrabbing) {
        return StoreName(GC_ERR_RESOURCE_IN_USE);
    }
    m_isOpen = false;
    delete m_pHalGvsp;
    m_pHalGvsp = nullptr;
    return GC_ERR_SUCCESS;
}

bool DataStreamGev::IsOpen() const
{
    return m_isOpen;
}

// ---- Buffers

int DataStreamGev::AnnounceBuffer(void* pBuffer, std::size_t iSize, void* pPrivate, void** phBuffer)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::AnnounceBuffer(pBuffer, iSize, pPrivate, phBuffer);
}

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
    if (!m_bufferInHand.Holds(handle)) {
        return false;
    }
    const bool isInCollection =
        std::find(m_inFlightBuffers.begin(), m_inFlightBuffers.end(), handle) != m_inFlightBuffers.end();
    if (isInCollection) {
        return false;
    }
    // While it waits in a queue it can't be revoked anyway.
    const Lock output(m_outputMutex);
    return !CastHandleToBufferPtr(hBuffer)->m_isQueued &&
           std::find(m_outputBuffers.begin(), m_outputBuffers.end(), handle) == m_outputBuffers.end();
}

bool DataStreamGev::IsBeingFilled(GenTLHandle* hBuffer) const
{
    return m_bufferInHand.Holds(hBuffer);
}

int DataStreamGev::FlushQueue(int iOperation)
{
    if (!m_isOpen) {
        return Raise(GC_ERR_INVALID_HANDLE, "the data stream is not open");
    }
    return DataStream::FlushQueue(iOperation);
}

int DataStreamGev::GetBufferID(unsigned iIndex, void** phBuffer) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetBufferID(iIndex, phBuffer);
}

int DataStreamGev::GetBufferInfo(
    void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code
                                  : DataStream::GetBufferInfo(hBuffer, iInfoCmd, piType, pBuffer, piSize);
}

int DataStreamGev::GetBufferChunkData(void* hBuffer,
                                      S_SINGLE_CHUNK_DATA* pChunkData,
                                      std::size_t* piNumChunks)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetBufferChunkData(hBuffer, pChunkData, piNumChunks);
}

int DataStreamGev::GetParentDev(void** phDevice) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetParentDev(phDevice);
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

int DataStreamGev::SetupResendRetryParams(unsigned long iRetries,
                                          double frameRate,
                                          const char* sFirst,
                                          const char* sSecond)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    m_retryParam = iRetries;
    m_frameRate = frameRate;
    m_firstRetryString = sFirst != nullptr ? sFirst : "";
    m_secondRetryString = sSecond != nullptr ? sSecond : "";
    return GC_ERR_SUCCESS;
}

// ---- Acquisition

int DataStreamGev::StartAcquisition(int iStartFlags, unsigned long iNumToAcquire)
{
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
    std::size_t announced = 0;
    {
        const boost::lock_guard<boost::recursive_mutex> lock(m_announcedMutex);
        announced = m_announcedBuffers.size();
    }
    if (announced < m_bufAnnounceMin) {
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
    {
        const boost::lock_guard<boost::recursive_mutex> lock(m_announcedMutex);
        m_firstBufferSize = CastHandleToBufferPtr(m_announcedBuffers.front())->m_size;
    }

    StreamStartParams params;
    params.m_packetSize = m_streamInfo.m_packetSize;
    params.m_autoPacketSize = m_streamInfo.m_autoPacketSize;
    params.m_extendedId = m_streamInfo.m_extendedId;
    params.m_bufferSize = m_firstBufferSize;
    params.m_packetResendEnable = m_streamInfo.m_packetResendEnable;
    params.m_interPacketExpiry = m_streamInfo.m_interPacketExpiry;
    params.m_maxResendRequests = m_streamInfo.m_maxResendRequests;
    params.m_multicastEnable = m_streamInfo.m_multicastEnable;
    params.m_accessMode = m_accessMode;
    params.m_retryParam = m_retryParam;
    params.m_frameRate = m_frameRate;
    params.m_firstRetryString = m_firstRetryString;
    params.m_secondRetryString = m_secondRetryString;
    if (const int code = m_pHalGvsp->Start(m_pHalGev, m_hDevice, params); code != GC_ERR_SUCCESS) {
        return code;
    }

    m_isGrabbing = true;
    m_numDelivered = 0;
    m_numUnderrun = 0;
    {
        const Lock lock(m_inputMutex);
        m_numStarted = m_inputBuffers.size();
    }
    m_streamInfo.m_packetSize = params.m_packetSize;
    m_streamInfo.m_interPacketExpiry = params.m_interPacketExpiry;
    m_streamInfo.m_bufferExpiry = params.m_bufferExpiry;
    m_streamInfo.m_resendRetries = params.m_resendRetries;
    m_streamInfo.m_missedImageCount = 0;
    m_streamInfo.m_missedPacketCount = 0;
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
        m_grabThread = boost::thread([this] { GrabThreadNoCopy(); });
    }
    return GC_ERR_SUCCESS;
}

void DataStreamGev::GrabThreadNoCopy()
{
    NoCopyGrab(*this).Run();
}

void DataStreamGev::GrabThreadResend()
{
    ResendGrab(*this).Run();
}

int DataStreamGev::StopAcquisition(int iStopFlags)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (!m_isGrabbing) {
        return Raise(GC_ERR_RESOURCE_IN_USE, "acquisition engine was not started");
    }
    if (iStopFlags == ACQ_STOP_FLAGS_KILL) {
        return StoreName(GC_ERR_NOT_IMPLEMENTED);
    }
    if (iStopFlags != ACQ_STOP_FLAGS_DEFAULT) {
        return StoreName(GC_ERR_INVALID_INDEX);
    }
    StopGrabThread();
    ReleaseLeaderWaiters();
    m_isGrabbing = false;
    const int code = m_pHalGvsp->Stop(m_pHalGev, m_hDevice, m_streamInfo.m_packetSize, m_accessMode);
    m_numStarted = 0;
    m_pHalGvsp->SetDriverType(kDriverUdpSocket);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

void DataStreamGev::StopGrabThread()
{
    // A start that failed half-way has no thread.
    if (m_grabThread.joinable()) {
        const boost::this_thread::disable_interruption uninterrupted;
        m_grabThread.interrupt();
        m_grabThread.join();
    }
}

void DataStreamGev::ReleaseLeaderWaiters()
{
    {
        const Lock lock(m_leaderMutex);
        m_leaderSeen = true;
    }
    m_leaderCondition.notify_all();
}

int DataStreamGev::WaitForNextLeader(unsigned long iTimeout)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (m_pHalGvsp->GetDriverType() == kDriverLwf) {
        return m_pHalGvsp->WaitForNextLeader(iTimeout);
    }
    if (iTimeout != GENTL_INFINITE && iTimeout > std::numeric_limits<std::uint32_t>::max()) {
        return StoreName(GC_ERR_INVALID_PARAMETER);
    }
    boost::unique_lock<boost::mutex> lock(m_leaderMutex);
    if (iTimeout == GENTL_INFINITE) {
        while (!m_leaderSeen) {
            m_leaderCondition.wait(lock);
        }
    } else {
        const boost::system_time deadline =
            boost::posix_time::microsec_clock::universal_time() +
            boost::posix_time::milliseconds(static_cast<std::int64_t>(iTimeout));
        while (!m_leaderSeen) {
            if (!m_leaderCondition.timed_wait(lock, deadline) && !m_leaderSeen) {
                return StoreName(GC_ERR_TIMEOUT);
            }
        }
    }
    m_leaderSeen = false;
    return GC_ERR_SUCCESS;
}

int DataStreamGev::ResetWaitForNextLeader()
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (m_pHalGvsp->GetDriverType() == kDriverLwf) {
        return m_pHalGvsp->ResetWaitForNextLeader();
    }
    const Lock lock(m_leaderMutex);
    m_leaderSeen = false;
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
