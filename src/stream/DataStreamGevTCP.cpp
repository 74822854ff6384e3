#include "stream/DataStreamGevTCP.h"

#include "buffers/Buffer.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "gev/IHALGev.h"
#include "gev/SignalBlock.h"
#include "log/GLogger.h"
#include "log/localization.h"
#include "stream/HALGvspTCP.h"
#include "stream/StreamStartParams.h"
#include "stream/TcpFrame.h"
#include "stream/TcpGrab.h"

#include <boost/thread/lock_guard.hpp>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;

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
    : GevStream(pHal, device, parent, index, accessMode)
{
}

DataStreamGevTCP::~DataStreamGevTCP()
{
    StopGrabThread();
    if (m_pHalGvsp != nullptr) {
        DataStreamGevTCP::EndLeaderWaits();
    }
}

int DataStreamGevTCP::CheckOpen(const char* function, int line) const
{
    return m_isOpen ? static_cast<int>(GC_ERR_SUCCESS) : StoreName(GC_ERR_INVALID_HANDLE, function, line);
}

int DataStreamGevTCP::Open(IHALGvsp* pHal)
{
    const Lock life(m_lifeMutex);
    if (m_isOpen) {
        return StoreName(GC_ERR_RESOURCE_IN_USE);
    }
    IHALGvsp* pTcp = dynamic_cast<HALGvspTCP*>(pHal);
    SetHal(pTcp != nullptr ? pTcp : new HALGvspTCP());
    m_isOpen = true;
    return GC_ERR_SUCCESS;
}

void DataStreamGevTCP::EndLeaderWaits()
{
    static_cast<HALGvspTCP&>(*m_pHalGvsp).EndLeaderWaits();
}

// ---- Buffers

int DataStreamGevTCP::AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    // A size beyond what can be is the allocation's to refuse, after everything else.
    constexpr std::size_t kLargest = std::numeric_limits<std::size_t>::max() - TcpFrame::kHeaderSize;
    const std::size_t size = std::min(iSize, kLargest) + TcpFrame::kHeaderSize;
    if (const int code = DataStream::AllocAndAnnounceBuffer(size, pPrivate, phBuffer);
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
    if (size > std::numeric_limits<std::size_t>::max() - TcpFrame::kHeaderSize) {
        throw std::bad_alloc();
    }
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

int DataStreamGevTCP::FlushQueue(int iOperation)
{
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    const Lock move(m_moveMutex);
    return DataStream::FlushQueue(iOperation);
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

// ---- Acquisition

int DataStreamGevTCP::StartAcquisition(int iStartFlags, unsigned long iNumToAcquire)
{
    const Lock life(m_lifeMutex);
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
    if (NumAnnounced() < m_bufAnnounceMin) {
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

int DataStreamGevTCP::StartHal(int iStartFlags)
{
    const bool asksForLegacyId = iStartFlags == ACQ_START_FLAGS_GVSP_LEGACY_ID;
    if (const int code =
            m_pHalGvsp->ConfigureExtendedId(m_pHalGev, m_hDevice, asksForLegacyId, m_streamInfo.m_extendedId);
        code != GC_ERR_SUCCESS) {
        return code;
    }
    m_pHalGvsp->SetDriverType(kDriverTcp);

    StreamStartParams params = MakeStartParams(FirstBufferSize());
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
    const Lock life(m_lifeMutex);
    if (const int code = CheckOpen(); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (!m_isGrabbing) {
        return StoreName(GC_ERR_RESOURCE_IN_USE);
    }
    if (const int code = CheckStopFlags(iStopFlags); code != GC_ERR_SUCCESS) {
        return code;
    }
    // First the connection, so that a blocked read ends.
    const int code = m_pHalGvsp->Stop(m_pHalGev, m_hDevice, m_streamInfo.m_packetSize, m_accessMode);
    StopGrabThread();
    m_isGrabbing = false;
    m_numStarted = 0;
    m_pHalGvsp->SetDriverType(kDriverTcp);
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int DataStreamGevTCP::WaitForNextLeader(unsigned long iTimeout)
{
    const std::shared_ptr<IHALGvsp> pHal = std::atomic_load(&m_pOwnHalGvsp);
    return pHal != nullptr ? pHal->WaitForNextLeader(iTimeout) : CheckOpen();
}

int DataStreamGevTCP::ResetWaitForNextLeader()
{
    const std::shared_ptr<IHALGvsp> pHal = std::atomic_load(&m_pOwnHalGvsp);
    return pHal != nullptr ? pHal->ResetWaitForNextLeader() : CheckOpen();
}

}  // namespace GenTL
