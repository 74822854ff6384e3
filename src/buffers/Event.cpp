#include "buffers/Event.h"

#include "frame/Error.h"

#include <string>

namespace GenTL {

Event::Event(int type, std::uint64_t sizeMax, std::uint64_t infoDataSizeMax)
    : m_eventType(type), m_eventSizeMax(sizeMax), m_infoDataSizeMax(infoDataSizeMax)
{
}

int Event::GetData(void*, std::size_t*, std::uint64_t)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int Event::GetDataInfo(const void*, std::size_t, int, int*, void*, std::size_t*) const
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int Event::GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize)
{
    const auto answer = [&](auto value) { return m_info.SetInfo(value, piType, pBuffer, piSize); };
    switch (iInfoCmd) {
        case EVENT_EVENT_TYPE:
            return answer(m_eventType);
        case EVENT_NUM_IN_QUEUE:
            return answer(m_numInQueue.load());
        case EVENT_NUM_FIRED:
            return answer(m_numFired.load());
        case EVENT_SIZE_MAX:
            return answer(m_eventSizeMax);
        case EVENT_INFO_DATA_SIZE_MAX:
            return answer(m_infoDataSizeMax);
        default:
            return Raise(GC_ERR_INVALID_INDEX,
                         "iInfoCmd must be one of :\n"
                         "GenTL::EVENT_EVENT_TYPE, GenTL::EVENT_NUM_IN_QUEUE, GenTL::EVENT_NUM_FIRED, \n"
                         "GenTL::EVENT_SIZE_MAX, GenTL::EVENT_INFO_DATA_SIZE_MAX");
    }
}

int Event::AnswerFixedTexts(const void* pInBuffer,
                            std::size_t iInSize,
                            int iInfoCmd,
                            int* piType,
                            void* pOutBuffer,
                            std::size_t* piOutSize,
                            const char* function) const
{
    if (pInBuffer == nullptr) {
        return StoreName(GC_ERR_INVALID_HANDLE, function);
    }
    if (iInSize == 0 || piOutSize == nullptr || piType == nullptr) {
        return StoreName(GC_ERR_INVALID_PARAMETER, function);
    }
    switch (iInfoCmd) {
        case EVENT_DATA_ID:
            return m_info.SetInfo(std::string("New Buffer Event"), piType, pOutBuffer, piOutSize);
        case EVENT_DATA_VALUE:
            return m_info.SetInfo(std::string("No buffer data value"), piType, pOutBuffer, piOutSize);
        case EVENT_DATA_NUMID:
            return StoreName(GC_ERR_NOT_AVAILABLE, function);
        default:
            return StoreName(GC_ERR_INVALID_INDEX, function);
    }
}

int Event::Flush() const
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int Event::Kill() const
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int Event::GetPortInfo(int, int*, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int Event::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

}  // namespace GenTL
