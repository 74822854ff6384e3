#include "stream/DataStreamGevTCP.h"

#include "buffers/Buffer.h"
#include "buffers/OpenedDataStreamGevStateManager.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/IHALGev.h"
#include "gev/SignalBlock.h"
#include "log/GLogger.h"
#include "log/localization.h"
#include "stream/HALGvspTCP.h"
#include "stream/StreamRegImpl.h"
#include "stream/StreamStartParams.h"
#include "stream/TcpFrame.h"
#include "stream/TcpGrab.h"
#include "xml/LocalXml.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;
using AnnouncedLock = boost::lock_guard<boost::recursive_mutex>;
using BufferLock = boost::lock_guard<boost::recursive_mutex>;

constexpr unsigned long kGvcpRetries = 3;

/// The camera's registers for what the heads of its frames will say.
struct GeometryRegister
{
    unsigned address;
    Relaxed<std::uint64_t> Buffer::*field;
};

constexpr GeometryRegister kGeometry[] = {
    {0x10400000, &Buffer::m_width      },
    {0x10400014, &Buffer::m_height     },
    {0x10400028, &Buffer::m_xOffset    },
    {0x1040003C, &Buffer::m_yOffset    },
    {0x10400060, &Buffer::m_pixelFormat},
};

/// Bytes of the image, without the head's room.
std::uint64_t ImageSize(const Buffer& buffer)
{
    return buffer.m_size - std::min<std::uint64_t>(buffer.m_size, TcpFrame::kHeaderSize);
}

/// Whitens ten rows around the middle, with a row taken as a byte per pixel. What of them lies beyond the
/// image, as on a geometry that doesn't go with the buffer's size, is left out.
void PaintWhiteBand(Buffer& buffer)
{
    constexpr std::uint64_t kHalfBand = 5;  // rows
    const std::uint64_t width = buffer.m_width;
    const std::uint64_t middle = buffer.m_height >> 1;
    const std::uint64_t size = ImageSize(buffer);
    // Both numbers came out of 32-bit registers.
    const std::uint64_t begin = std::min(size, (middle - std::min(middle, kHalfBand)) * width);
    const std::uint64_t end = std::min(size, (middle + kHalfBand) * width);
    std::memset(static_cast<char*>(buffer.m_pData) + begin, 0xFF, end - begin);
}

}  // namespace

DataStreamGevTCP::DataStreamGevTCP(IHALGev* pHal, void* device, void* parent, unsigned index, int accessMode)
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

DataStreamGevTCP::~DataStreamGevTCP()
{
    StopGrabThread();
    delete m_pHalGvsp;
}

int DataStreamGevTCP::ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize)
{
    return StreamRegImpl(this).DispatchRead(iAddress, pBuffer, piSize);
}

int DataStreamGevTCP::WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize)
{
    return StreamRegImpl(this).DispatchWrite(iAddress, pBuffer, piSize);
}

int DataStreamGevTCP::GetPortURL(char* sURL, unsigned long* piSize) const
{
    return AnswerLocalURL("SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1", kStreamXml.size(), sURL,
                          piSize);
}

int DataStreamGevTCP::GetNumPortURLs(unsigned int* piNumURLs)
{
    return AnswerOneURL(piNumURLs);
}

int DataStreamGevTCP::GetPortURLInfo(
    unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    return BaseModule::GetPortURLInfo(iURLIndex, iInfoCmd, piType, pBuffer, piSize);
}

int DataStreamGevTCP::GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetPortInfo(iInfoCmd, piType, pBuffer, piSize);
}

int DataStreamGevTCP::RegisterEvent(int iEventID, void** phEvent)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::RegisterEvent(iEventID, phEvent);
}

int DataStreamGevTCP::UnregisterEvent(int iEventID)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::UnregisterEvent(iEventID);
}

int DataStreamGevTCP::CheckOpen(const char* function, int line) const
{
    return m_isOpen ? static_cast<int>(GC_ERR_SUCCESS) : StoreName(GC_ERR_INVALID_HANDLE, function, line);
}

int DataStreamGevTCP::Open(IHALGvsp* pHal)
{
    if (m_isOpen) {
        return StoreName(GC_ERR_RESOURCE_IN_USE);
    }
    IHALGvsp* pTcp = dynamic_cast<HALGvspTCP*>(pHal);
    m_pHalGvsp = pTcp != nullptr ? pTcp : new HALGvspTCP();
    m_isOpen = true;
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::Close()
{
    if (!m_isOpen || m_isGrabbing) {
        return StoreName(GC_ERR_RESOURCE_IN_USE);
    }
    m_isOpen = false;
    delete m_pHalGvsp;
    m_pHalGvsp = nullptr;
    return GC_ERR_SUCCESS;
}

bool DataStreamGevTCP::IsOpen() const
{
    return m_isOpen;
}

// ---- Buffers

int DataStreamGevTCP::AnnounceBuffer(void* pBuffer, std::size_t iSize, void* pPrivate, void** phBuffer)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::AnnounceBuffer(pBuffer, iSize, pPrivate, phBuffer);
}

int DataStreamGevTCP::AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (iSize > std::numeric_limits<std::size_t>::max() - 2 * TcpFrame::kHeaderSize) {
        throw std::bad_alloc();
    }
    if (const int code =
            DataStream::AllocAndAnnounceBuffer(iSize + TcpFrame::kHeaderSize, pPrivate, phBuffer);
        code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    Buffer& buffer = *CastHandleToBufferPtr(*phBuffer);
    if (const int code = ReadGeometry(buffer); code != GC_ERR_SUCCESS) {
        RevokeBuffer(*phBuffer, nullptr, nullptr);
        *phBuffer = nullptr;
        return AppendName(code);
    }
    const std::string width = std::to_string(buffer.m_width);
    const std::string height = std::to_string(buffer.m_height);
    GLogger::Error(
        loc::al("AllocAndAnnounceBuffer():  w = [{0}], h = [{1}]", {width.c_str(), height.c_str()}).c_str());
    return GC_ERR_SUCCESS;
}

int DataStreamGevTCP::ReadGeometry(Buffer& buffer) const
{
    for (const GeometryRegister& geometry : kGeometry) {
        unsigned value = 0;
        if (const int code = m_pHalGev->ReadReg(m_hDevice, geometry.address, value); code != GC_ERR_SUCCESS) {
            return code;
        }
        buffer.*geometry.field = value;
    }
    return GC_ERR_SUCCESS;
}

/// The head's room ahead of the memory, and as much behind it: a copy of a Buffer takes its whole size from
/// the start of the image.
char* DataStreamGevTCP::AllocateMemory(std::size_t size) const
{
    return DataStream::AllocateMemory(size + TcpFrame::kHeaderSize) + TcpFrame::kHeaderSize;
}

void DataStreamGevTCP::FreeMemory(char* pData) const
{
    DataStream::FreeMemory(pData - TcpFrame::kHeaderSize);
}

int DataStreamGevTCP::QueueBuffer(void* hBuffer)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (hBuffer == nullptr) {
        return StoreName(GC_ERR_ERROR);
    }
    if (const int code = CheckHandle(hBuffer); code != GC_ERR_SUCCESS) {
        GLogger::Error("GenTL::DataStream::QueueBuffer Buffer handle is not valid GenTL handle");
        return AppendName(code);
    }
    auto* handle = static_cast<GenTLHandle*>(hBuffer);
    Buffer* pBuffer = CastHandleToBufferPtr(hBuffer);
    if (pBuffer != nullptr && IsAnnounced(handle)) {
        PaintWhiteBand(*pBuffer);
    }
    if (m_pHalGvsp->GetDriverType() != kDriverLwf) {
        return DataStream::QueueBuffer(hBuffer);
    }
    if (pBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_HANDLE, "pBuffer==nullptr");
    }
    pBuffer->m_state = IN_DRIVER;
    return m_pHalGvsp->QueueImageBufferInLwfDriver(handle);
}

int DataStreamGevTCP::RevokeBuffer(void* hBuffer, void** ppBuffer, void** ppPrivate)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    const Lock move(m_moveMutex);
    return DataStream::RevokeBuffer(hBuffer, ppBuffer, ppPrivate);
}

bool DataStreamGevTCP::IsBeingFilled(GenTLHandle* hBuffer) const
{
    return m_bufferInHand.Holds(hBuffer);
}

int DataStreamGevTCP::FlushQueue(int iOperation)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::FlushQueue(iOperation);
}

int DataStreamGevTCP::GetBufferID(unsigned iIndex, void** phBuffer) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetBufferID(iIndex, phBuffer);
}

int DataStreamGevTCP::GetBufferInfo(
    void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (const int code = CheckHandle(hBuffer); code != GC_ERR_SUCCESS) {
        GLogger::Error("GenTL::DataStreamGevTCP::GetBufferInfo Buffer handle is not valid GenTL handle");
        return AppendName(code);
    }
    Buffer* pBuf = CastHandleToBufferPtr(hBuffer);
    if (pBuf == nullptr) {
        GLogger::Error("GenTL::DataStreamGevTCP::GetBufferInfo Buffer handle is of wrong type");
        return Raise(GC_ERR_INVALID_HANDLE, "pIBuffer==nullptr || pBuf==nullptr");
    }
    if (iInfoCmd == BUFFER_INFO_SIZE) {
        return m_info.SetInfo(ImageSize(*pBuf), piType, pBuffer, piSize);
    }
    return DataStream::GetBufferInfo(hBuffer, iInfoCmd, piType, pBuffer, piSize);
}

int DataStreamGevTCP::GetBufferChunkData(void* hBuffer,
                                         S_SINGLE_CHUNK_DATA* pChunkData,
                                         std::size_t* piNumChunks)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetBufferChunkData(hBuffer, pChunkData, piNumChunks);
}

int DataStreamGevTCP::GetParentDev(void** phDevice) const
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : DataStream::GetParentDev(phDevice);
}

// ---- Information

int DataStreamGevTCP::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    const std::optional<int> code = m_settings.GetInfo(iInfoCmd, piType, pBuffer, piSize);
    return code ? *code : DataStream::GetInfo(iInfoCmd, piType, pBuffer, piSize);
}

int DataStreamGevTCP::SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    const std::optional<int> code = m_settings.SetInfo(iInfoCmd, iType, pBuffer, iSize);
    return code ? *code : DataStream::SetInfo(iInfoCmd, iType, pBuffer, iSize);
}

int DataStreamGevTCP::SetupResendRetryParams(unsigned long iRetries,
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

int DataStreamGevTCP::StartAcquisition(int iStartFlags, unsigned long iNumToAcquire)
{
    if (const int code = CheckStart(iStartFlags, iNumToAcquire); code != GC_ERR_SUCCESS) {
        return code;
    }
    m_isGrabbing = true;
    CountFromZero();
    if (const int code = StartHal(iStartFlags); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    m_pHalGev->SetGvcpRetries(kGvcpRetries);
    return StartGrabThread();
}

int DataStreamGevTCP::CheckStart(int iStartFlags, unsigned long iNumToAcquire) const
{
    constexpr const char* kFunction = "StartAcquisition";
    if (const int code = CheckOpen(kFunction); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (m_isGrabbing) {
        return StoreName(GC_ERR_RESOURCE_IN_USE, kFunction);
    }
    std::size_t announced = 0;
    {
        const AnnouncedLock lock(m_announcedMutex);
        announced = m_announcedBuffers.size();
    }
    if (announced < m_bufAnnounceMin) {
        return StoreName(GC_ERR_INVALID_BUFFER, kFunction);
    }
    if (iNumToAcquire == 0) {
        return StoreName(GC_ERR_INVALID_PARAMETER, kFunction);
    }
    if (iStartFlags != ACQ_START_FLAGS_DEFAULT && iStartFlags != ACQ_START_FLAGS_GVSP_LEGACY_ID) {
        return StoreName(GC_ERR_INVALID_INDEX, kFunction);
    }
    return GC_ERR_SUCCESS;
}

void DataStreamGevTCP::CountFromZero()
{
    m_numDelivered = 0;
    m_numUnderrun = 0;
    m_streamInfo.m_missedImageCount = 0;
    m_streamInfo.m_missedPacketCount = 0;
    const Lock lock(m_inputMutex);
    m_numStarted = m_inputBuffers.size();
}

int DataStreamGevTCP::StartHal(int iStartFlags)
{
    const bool asksForLegacyId = iStartFlags == ACQ_START_FLAGS_GVSP_LEGACY_ID;
    if (const int code =
            m_pHalGvsp->ConfigureExtendedId(m_pHalGev, m_hDevice, asksForLegacyId, m_streamInfo.m_extendedId);
        code != GC_ERR_SUCCESS) {
        return code;
    }
    m_pHalGvsp->SetDriverType(kDriverTcp);

    StreamStartParams params;
    params.m_packetSize = m_streamInfo.m_packetSize;
    params.m_autoPacketSize = m_streamInfo.m_autoPacketSize;
    params.m_extendedId = m_streamInfo.m_extendedId;
    params.m_packetResendEnable = m_streamInfo.m_packetResendEnable;
    params.m_interPacketExpiry = m_streamInfo.m_interPacketExpiry;
    params.m_maxResendRequests = m_streamInfo.m_maxResendRequests;
    params.m_multicastEnable = m_streamInfo.m_multicastEnable;
    params.m_accessMode = m_accessMode;
    params.m_retryParam = m_retryParam;
    params.m_frameRate = m_frameRate;
    params.m_firstRetryString = m_firstRetryString;
    params.m_secondRetryString = m_secondRetryString;
    {
        const AnnouncedLock lock(m_announcedMutex);
        if (!m_announcedBuffers.empty()) {
            params.m_bufferSize = CastHandleToBufferPtr(m_announcedBuffers.front())->m_size;
        }
    }
    return m_pHalGvsp->Start(m_pHalGev, m_hDevice, params);
}

int DataStreamGevTCP::StartGrabThread()
{
    if (m_pHalGvsp->GetDriverType() != kDriverTcp) {
        return StoreName(GC_ERR_IO, "StartAcquisition");
    }
    const SignalBlock noSignals;
    m_grabThread = boost::thread([this] { GrabThread(); });
    return GC_ERR_SUCCESS;
}

void DataStreamGevTCP::GrabThread()
{
    TcpGrab(*this).Run();
}

int DataStreamGevTCP::StopAcquisition(int iStopFlags)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (!m_isGrabbing) {
        return StoreName(GC_ERR_RESOURCE_IN_USE);
    }
    if (iStopFlags == ACQ_STOP_FLAGS_KILL) {
        return StoreName(GC_ERR_NOT_IMPLEMENTED);
    }
    if (iStopFlags != ACQ_STOP_FLAGS_DEFAULT) {
        return StoreName(GC_ERR_INVALID_INDEX);
    }
    // First the connection, so that a blocked read ends.
    const int code = m_pHalGvsp->Stop(m_pHalGev, m_hDevice, m_streamInfo.m_packetSize, m_accessMode);
    StopGrabThread();
    m_isGrabbing = false;
    m_numStarted = 0;
    m_pHalGvsp->SetDriverType(kDriverTcp);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

void DataStreamGevTCP::StopGrabThread()
{
    // A start that failed half-way has no thread.
    if (m_grabThread.joinable()) {
        const boost::this_thread::disable_interruption uninterrupted;
        m_grabThread.interrupt();
        m_grabThread.join();
    }
}

int DataStreamGevTCP::WaitForNextLeader(unsigned long iTimeout)
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : m_pHalGvsp->WaitForNextLeader(iTimeout);
}

int DataStreamGevTCP::ResetWaitForNextLeader()
{
    const int code = CheckOpen();
    return code != GC_ERR_SUCCESS ? code : m_pHalGvsp->ResetWaitForNextLeader();
}

}  // namespace GenTL
