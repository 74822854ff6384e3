/// What all events have in common.
#pragma once

#include "buffers/IEvent.h"
#include "modules/ModuleOf.h"

#include <atomic>

namespace GenTL {

/// Counts and answers the general information; the data are a derived class's.
///
/// Owns: nothing. Threads: any of the consumer's, several may wait at once; the counters are atomic. Locks:
/// none.
class Event : public ModuleOf<IEvent>
{
public:
    int GetData(void* pBuffer, std::size_t* piSize, std::uint64_t iTimeout) override;
    int GetDataInfo(const void* pInBuffer,
                    std::size_t iInSize,
                    int iInfoCmd,
                    int* piType,
                    void* pOutBuffer,
                    std::size_t* piOutSize) const override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) override;
    int Flush() const override;
    int Kill() const override;

    // An event has no port.
    int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;

protected:
    /// type is an EVENT_TYPE; the sizes are EVENT_SIZE_MAX and EVENT_INFO_DATA_SIZE_MAX in bytes.
    Event(int type, std::uint64_t sizeMax, std::uint64_t infoDataSizeMax);

    /// GetDataInfo of an event whose data the library doesn't look into; raises in its name. The words are
    /// those of the stream's event for all: consumers know them.
    int AnswerFixedTexts(const void* pInBuffer,
                         std::size_t iInSize,
                         int iInfoCmd,
                         int* piType,
                         void* pOutBuffer,
                         std::size_t* piOutSize,
                         const char* function = __builtin_FUNCTION()) const;

    const int m_eventType;
    std::atomic<std::uint64_t> m_numInQueue{0};  // as last asked for
    std::atomic<std::uint64_t> m_numFired{0};    // handed to the consumer
    const std::uint64_t m_eventSizeMax;
    const std::uint64_t m_infoDataSizeMax;
};

}  // namespace GenTL
