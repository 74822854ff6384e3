#include "stream/StreamSettings.h"

#include "frame/Error.h"
#include "frame/GenTL.h"
#include "stream/StreamInfo.h"

#include <type_traits>

namespace GenTL {

std::optional<int> StreamSettings::GetInfo(int iInfoCmd,
                                           int* piType,
                                           void* pBuffer,
                                           std::size_t* piSize) const
{
    const auto answer = [&](auto value) { return m_info.SetInfo(value, piType, pBuffer, piSize); };
    switch (iInfoCmd) {
        case STREAM_INFO_BUFFER_HANDLING_MODE:
            return answer(m_handlingMode.load());
        case STREAM_INFO_MISSED_IMAGE_COUNT:
            return answer(m_stream.m_missedImageCount.load());
        case STREAM_INFO_MISSED_PACKET_COUNT:
            return answer(m_stream.m_missedPacketCount.load());
        case STREAM_INFO_TOTAL_MISSED_IMAGE_COUNT:
            return answer(m_stream.m_totalMissedImageCount.load());
        case STREAM_INFO_TOTAL_INCOMPLETE_IMAGE_COUNT:
            return answer(m_stream.m_totalIncompleteImageCount.load());
        case STREAM_INFO_PACKET_RESEND_ENABLE:
            return answer(m_stream.m_packetResendEnable.load());
        case STREAM_INFO_AUTO_PACKET_SIZE_ENABLE:
            return answer(m_stream.m_autoPacketSize.load());
        case STREAM_INFO_MAX_RESEND_REQUESTS:
            return answer(m_stream.m_maxResendRequests.load());
        case STREAM_INFO_MULTICAST_ENABLE:
            return answer(m_stream.m_multicastEnable.load());
        default:
            return std::nullopt;
    }
}

std::optional<int> StreamSettings::SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize)
{
    const auto take = [&](auto& setting) {
        typename std::decay_t<decltype(setting)>::value_type value{};
        const int code = m_info.GetInfo(iType, pBuffer, iSize, value);
        if (code == GC_ERR_SUCCESS) {
            setting = value;
        }
        return code;
    };
    switch (iInfoCmd) {
        case STREAM_INFO_BUFFER_HANDLING_MODE: {
            std::int64_t mode = 0;
            if (const int code = m_info.GetInfo(iType, pBuffer, iSize, mode); code != GC_ERR_SUCCESS) {
                return code;
            }
            if (mode < kOldestFirst || mode > kNewestOnly) {
                return StoreName(GC_ERR_INVALID_INDEX);
            }
            m_handlingMode = mode;
            return GC_ERR_SUCCESS;
        }
        case STREAM_INFO_PACKET_RESEND_ENABLE:
            return take(m_stream.m_packetResendEnable);
        case STREAM_INFO_AUTO_PACKET_SIZE_ENABLE:
            return take(m_stream.m_autoPacketSize);
        case STREAM_INFO_MAX_RESEND_REQUESTS:
            return take(m_stream.m_maxResendRequests);
        case STREAM_INFO_MULTICAST_ENABLE:
            return take(m_stream.m_multicastEnable);
        default:
            return std::nullopt;
    }
}

}  // namespace GenTL
