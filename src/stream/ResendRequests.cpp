#include "stream/ResendRequests.h"

#include "buffers/Buffer.h"
#include "gev/IHALGev.h"
#include "log/GLogger.h"
#include "log/localization.h"
#include "stream/DataStreamGev.h"
#include "stream/PacketResendRequest.h"

#include <boost/asio/error.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/lock_guard.hpp>

#include <algorithm>
#include <memory>
#include <string>

namespace GenTL {
namespace {

using InFlightLock = boost::lock_guard<boost::mutex>;
using BufferLock = boost::lock_guard<boost::recursive_mutex>;
using RequestsLock = boost::lock_guard<boost::mutex>;
using RecordLock = std::lock_guard<std::mutex>;

}  // namespace

bool ResendRequests::MayAskLocked(const Buffer& buffer) const
{
    return buffer.m_resendRequestCount < m_stream.m_streamInfo.m_maxResendRequests;
}

void ResendRequests::AskForRangeLocked(Buffer& buffer, std::uint32_t first, std::uint32_t last)
{
    if (!MayAskLocked(buffer) || first > last) {
        return;
    }
    const StreamInfo& info = m_stream.m_streamInfo;
    auto request = std::make_unique<PacketResendRequest>();
    request->m_serial = ++m_stream.m_lastResendSerial;
    request->m_pBuffer = &buffer;
    request->m_blockId = info.m_currentBlockId;
    request->m_firstPacketId = first;
    request->m_lastPacketId = last;
    request->m_extendedId = info.m_extendedId;
    request->m_remaining = last - first + 1;
    request->m_retriesLeft = info.m_resendRetries;
    request->m_pTimer = std::make_unique<boost::asio::deadline_timer>(m_stream.m_ioService);

    PacketResendRequest& asked = *request;
    const RequestsLock requests(buffer.m_resendRequestsMutex);
    buffer.m_resendRequests.push_back(request.get());
    request.release();
    const RecordLock record(asked.m_mutex);
    {
        const RecordLock list(m_stream.m_resendRequestListMutex);
        m_stream.m_resendRequestList.push_back(&asked);
    }
    ++buffer.m_resendRequestCount;
    SendLocked(asked);
    ArmRepeatLocked(asked);
}

void ResendRequests::AskForRestLocked(Buffer& buffer, const char* what)
{
    const StreamInfo& info = m_stream.m_streamInfo;
    // The images of a stream without resend have no bitmap. Its switch can be turned on while it runs.
    const bool tracksPackets = buffer.m_pPacketBitmap != nullptr;
    if (!info.m_packetResendEnable || !tracksPackets || buffer.m_trailerReceived || !MayAskLocked(buffer)) {
        return;
    }
    const std::uint64_t block = buffer.m_frameId;
    const std::string text = std::string(what) + "({0}): Firing resend";
    GLogger::Error(loc::al(text.c_str(), {std::to_string(block).c_str()}).c_str());
    ++buffer.m_resendRequestCount;
    // One more than there are: the last id asked for is that behind the trailer.
    m_stream.m_pHalGev->SendPacketResend(m_stream.m_hDevice, block, buffer.m_nextExpectedPacketId,
                                         info.m_packetsPerImage, info.m_extendedId);
}

void ResendRequests::BookLocked(Buffer& buffer, std::uint32_t packetId)
{
    const RequestsLock requests(buffer.m_resendRequestsMutex);
    for (auto it = buffer.m_resendRequests.begin(); it != buffer.m_resendRequests.end(); ++it) {
        PacketResendRequest* pRequest = *it;
        {
            const RecordLock record(pRequest->m_mutex);
            if (packetId < pRequest->m_firstPacketId || packetId > pRequest->m_lastPacketId) {
                continue;
            }
            if (--pRequest->m_remaining != 0) {
                continue;
            }
            UnlistLocked(pRequest);
        }
        buffer.m_resendRequests.erase(it);
        delete pRequest;
        return;
    }
}

void ResendRequests::CancelAllLocked(Buffer& buffer)
{
    const RequestsLock requests(buffer.m_resendRequestsMutex);
    for (PacketResendRequest* pRequest : buffer.m_resendRequests) {
        {
            const RecordLock record(pRequest->m_mutex);
            UnlistLocked(pRequest);
        }
        delete pRequest;
    }
    buffer.m_resendRequests.clear();
}

void ResendRequests::ArmRepeatLocked(PacketResendRequest& request)
{
    const std::uint32_t interval = std::max(m_stream.m_streamInfo.m_resendRetryInterval, 1U);
    request.m_pTimer->expires_from_now(boost::posix_time::milliseconds(interval));
    request.m_pTimer->async_wait(
        [&stream = m_stream, serial = request.m_serial](const boost::system::error_code& error) {
            PacketResendRequestTimerExpiryHandler(error, stream, serial);
        });
}

/// A command that can't be sent is repeated like one that isn't answered.
void ResendRequests::SendLocked(const PacketResendRequest& request)
{
    m_stream.m_pHalGev->SendPacketResend(m_stream.m_hDevice, request.m_blockId, request.m_firstPacketId,
                                         request.m_lastPacketId, request.m_extendedId);
}

PacketResendRequest* ResendRequests::FindInFlightLocked(std::uint64_t serial)
{
    const RecordLock list(m_stream.m_resendRequestListMutex);
    const auto& all = m_stream.m_resendRequestList;
    const auto found = std::find_if(all.begin(), all.end(), [serial](const PacketResendRequest* pRequest) {
        return pRequest->m_serial == serial;
    });
    return found != all.end() ? *found : nullptr;
}

/// The timer goes with the record; a handler that is due already doesn't find it any more.
void ResendRequests::UnlistLocked(PacketResendRequest* pRequest)
{
    const RecordLock list(m_stream.m_resendRequestListMutex);
    m_stream.m_resendRequestList.remove(pRequest);
}

void ResendRequests::PacketResendRequestTimerExpiryHandler(const boost::system::error_code& error,
                                                           DataStreamGev& stream,
                                                           std::uint64_t serial)
{
    if (error == boost::asio::error::operation_aborted) {
        return;
    }
    const InFlightLock inFlight(stream.m_inFlightMutex);
    ResendRequests requests(stream);
    PacketResendRequest* pRequest = requests.FindInFlightLocked(serial);
    if (pRequest == nullptr || pRequest->m_pBuffer == nullptr) {
        return;
    }
    const BufferLock buffer(pRequest->m_pBuffer->m_mutex);
    const RecordLock record(pRequest->m_mutex);
    if (pRequest->m_retriesLeft == 0) {
        return;  // open and silent until the image ends
    }
    requests.ArmRepeatLocked(*pRequest);
    requests.SendLocked(*pRequest);
    --pRequest->m_retriesLeft;
}

}  // namespace GenTL
