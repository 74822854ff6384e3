/// One buffer of a message channel.
#pragma once

#include "buffers/IBuffer.h"

#include <cstdint>

namespace GenTL {

/// A block of memory with the datagram that it holds. Owns: nothing; the channel frees block and buffer.
/// Threads: the receive thread fills it and consumers read it, never at the same time: it passes between them
/// through the channel's queues.
class MCBuffer : public IBuffer
{
public:
    MCBuffer() = default;
    /// Copies the contents into a new block; what this buffer held before is not freed. Throws
    /// std::bad_alloc with nothing changed.
    MCBuffer& operator=(const MCBuffer& other);

    // A buffer has no port.
    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    char* m_pData = nullptr;  // made by new[]
    std::uint64_t m_size = 0;
    void* m_pUserPointer = nullptr;
    std::uint64_t m_timestamp = 0;   // nobody sets it: events carry their own
    std::uint64_t m_sizeFilled = 0;  // 0 while queued
};

}  // namespace GenTL
