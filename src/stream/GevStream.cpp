#include "stream/GevStream.h"

#include "buffers/Buffer.h"
#include "buffers/OpenedDataStreamGevStateManager.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "stream/IHALGvsp.h"
#include "stream/StreamRegImpl.h"
#include "xml/LocalXml.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/recursive_mutex.hpp>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;
using AnnouncedLock = boost::lock_guard<boost::recursive_mutex>;

}  // namespace

GevStream::GevStream(IHALGev* pHal, void* device, void* parent, unsigned index, int accessMode)
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

GevStream::~GevStream() = default;

void GevStream::SetHal(IHALGvsp* pHal)
{
    std::atomic_store(&m_pOwnHalGvsp, std::shared_ptr<IHALGvsp>(pHal));
    m_pHalGvsp = pHal;
}

int GevStream::ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize)
{
    return StreamRegImpl(this).DispatchRead(iAddress, pBuffer, piSize);
}

int GevStream::WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize)
{
    return StreamRegImpl(this).DispatchWrite(iAddress, pBuffer, piSize);
}

int GevStream::GetPortURL(char* sURL, unsigned long* piSize) const
{
    return AnswerLocalURL("SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1", kStreamXml.size(), sURL,
                          piSize);
}

int GevStream::GetNumPortURLs(unsigned int* piNumURLs)
{
    return AnswerOneURL(piNumURLs);
}

int GevStream::GetPortURLInfo(
    unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    return BaseModule::GetPortURLInfo(iURLIndex, iInfoCmd, piType, pBuffer, piSize);
}

int GevStream::GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetPortInfo(iInfoCmd, piType, pBuffer, piSize);
}

int GevStream::RegisterEvent(int iEventID, void** phEvent)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::RegisterEvent(iEventID, phEvent);
}

int GevStream::UnregisterEvent(int iEventID)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::UnregisterEvent(iEventID);
}

int GevStream::Close()
{
    const Lock life(m_lifeMutex);
    if (!m_isOpen || m_isGrabbing) {
        return StoreName(GC_ERR_RESOURCE_IN_USE);
    }
    m_isOpen = false;
    EndLeaderWaits();
    SetHal(nullptr);
    return GC_ERR_SUCCESS;
}

bool GevStream::IsOpen() const
{
    return m_isOpen;
}

int GevStream::AnnounceBuffer(void* pBuffer, std::size_t iSize, void* pPrivate, void** phBuffer)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::AnnounceBuffer(pBuffer, iSize, pPrivate, phBuffer);
}

int GevStream::GetBufferID(unsigned iIndex, void** phBuffer) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetBufferID(iIndex, phBuffer);
}

int GevStream::GetBufferChunkData(void* hBuffer, S_SINGLE_CHUNK_DATA* pChunkData, std::size_t* piNumChunks)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetBufferChunkData(hBuffer, pChunkData, piNumChunks);
}

int GevStream::GetParentDev(void** phDevice) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetParentDev(phDevice);
}

int GevStream::SetupResendRetryParams(unsigned long iRetries,
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

void GevStream::StopGrabThread()
{
    // A start that failed half-way has no thread.
    if (m_grabThread.joinable()) {
        const boost::this_thread::disable_interruption uninterrupted;
        m_grabThread.interrupt();
        m_grabThread.join();
    }
}

bool GevStream::IsBeingFilled(GenTLHandle* hBuffer) const
{
    return m_bufferInHand.Holds(hBuffer);
}

// ---- Starting

std::size_t GevStream::NumAnnounced() const
{
    const AnnouncedLock lock(m_announcedMutex);
    return m_announcedBuffers.size();
}

std::uint64_t GevStream::FirstBufferSize() const
{
    const AnnouncedLock lock(m_announcedMutex);
    return m_announcedBuffers.empty() ? 0 : CastHandleToBufferPtr(m_announcedBuffers.front())->m_size;
}

StreamStartParams GevStream::MakeStartParams(std::uint64_t bufferSize) const
{
    StreamStartParams params;
    params.m_packetSize = m_streamInfo.m_packetSize;
    params.m_autoPacketSize = m_streamInfo.m_autoPacketSize;
    params.m_extendedId = m_streamInfo.m_extendedId;
    params.m_bufferSize = bufferSize;
    params.m_packetResendEnable = m_streamInfo.m_packetResendEnable;
    params.m_interPacketExpiry = m_streamInfo.m_interPacketExpiry;
    params.m_maxResendRequests = m_streamInfo.m_maxResendRequests;
    params.m_multicastEnable = m_streamInfo.m_multicastEnable;
    params.m_accessMode = m_accessMode;
    params.m_retryParam = m_retryParam;
    params.m_frameRate = m_frameRate;
    params.m_firstRetryString = m_firstRetryString;
    params.m_secondRetryString = m_secondRetryString;
    return params;
}

int GevStream::CheckStopFlags(int iStopFlags, const char* function)
{
    if (iStopFlags == ACQ_STOP_FLAGS_KILL) {
        return StoreName(GC_ERR_NOT_IMPLEMENTED, function);
    }
    return iStopFlags == ACQ_STOP_FLAGS_DEFAULT ? static_cast<int>(GC_ERR_SUCCESS)
                                                : StoreName(GC_ERR_INVALID_INDEX, function);
}

void GevStream::CountFromZero()
{
    m_numDelivered = 0;
    m_numUnderrun = 0;
    m_streamInfo.m_missedImageCount = 0;
    m_streamInfo.m_missedPacketCount = 0;
    const Lock lock(m_inputMutex);
    m_numStarted = m_inputBuffers.size();
}

}  // namespace GenTL
