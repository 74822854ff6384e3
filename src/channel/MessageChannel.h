/// The message channel of any transport: buffers for a camera's events, and the queues between them.
#pragma once

#include "channel/IMessageChannel.h"
#include "modules/ModuleOf.h"

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace GenTL {

class MCBuffer;
class RemoteDeviceEvent;
struct GenTLHandle;

/// The most bytes that an event's datagram has.
inline constexpr std::uint64_t kEventSizeMax = 576;

/// The buffer of a valid handle; null when it is a handle of something else.
MCBuffer* ToMCBuffer(void* hBuffer);

/// Keeps the buffers and the one remote device event; refuses what needs a transport. MessageChannelGev is
/// the only working kind.
///
/// Owns: the announced buffers with their memory and handles, and the event. Threads: the consumer's waits,
/// kills and flushes from any thread and does the rest from one; the transport's receive thread takes buffers
/// and gives them back. Locks: the three mutexes are never held together; only that of the error cache is
/// taken inside.
///
/// A buffer that the receive thread has in hand is in no queue. RevokeBuffer refuses it, and a flush that
/// happens meanwhile keeps it out of both queues.
class MessageChannel : public ModuleOf<IMessageChannel>
{
public:
    MessageChannel();
    MessageChannel(const MessageChannel&) = delete;
    MessageChannel& operator=(const MessageChannel&) = delete;
    /// The consumer's event handle is refused from here on.
    ~MessageChannel() override;

    // Port.
    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    /// Only EVENT_REMOTE_DEVICE exists, once per channel (GC_ERR_RESOURCE_IN_USE).
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    // IMessageChannel.
    int Open(IHALGvmc* pHal, bool multicast) override;
    int Close() override;
    /// iSize is in bytes. GC_ERR_BUSY while listening. Throws std::bad_alloc.
    int AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer) override;
    /// Puts the buffer at the end of the input queue, without a look whether it stands there already.
    int QueueBuffer(void* hBuffer) override;
    /// GC_ERR_BUSY while the buffer is in a queue or being filled.
    int RevokeBuffer(void* hBuffer, void** ppPrivate) override;
    int GetBufferID(unsigned iIndex, void** phBuffer) const override;
    int GetBufferInfo(void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) override;
    int StartListening() override;
    int StopListening() override;
    /// Empties both queues. The buffers stay announced, and nothing puts them back.
    int Flush() override;
    bool IsOpen() const override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;
    /// Waits up to iTimeout ms, GENTL_INFINITE for ever, for a buffer in the output queue and takes it.
    /// GC_ERR_TIMEOUT, or GC_ERR_ABORT once after a kill; GC_ERR_INVALID_PARAMETER for other values with the
    /// top bit set when the queue is empty; *phBuffer is null then.
    int WaitOnNewBuffer(void** phBuffer, unsigned long iTimeout) override;
    /// Marks a kill for the next wait that runs out of time. No wait is ended by it.
    int KillWaitForNewBuffer() override;

    /// Events that wait for the consumer.
    std::size_t NumAwaitDelivery() const;

protected:
    // For the receive thread, which has at most one buffer in hand.

    /// Waits for a buffer in the input queue and takes it in hand. An interruption point.
    MCBuffer& TakeFromInput();
    /// Puts the buffer in hand back to where it was taken from.
    void ReturnToInput();
    /// Hands the buffer in hand to the consumer.
    void Deliver();
    /// Lets the buffer in hand be in no queue.
    void LetGo();

    std::vector<GenTLHandle*> m_announcedBuffers;
    std::deque<GenTLHandle*> m_inputBuffers;
    std::deque<GenTLHandle*> m_outputBuffers;
    mutable boost::recursive_mutex m_announcedMutex;  // guards m_announcedBuffers
    mutable boost::mutex m_inputMutex;                // guards m_inputBuffers and m_hInHand
    mutable boost::mutex m_outputMutex;               // guards m_outputBuffers
    boost::condition_variable m_inputCondition;
    boost::condition_variable m_outputCondition;
    std::unique_ptr<RemoteDeviceEvent> m_pRemoteDeviceEvent;
    void* m_hRemoteDeviceEvent = nullptr;
    std::atomic<std::uint64_t> m_numDelivered{0};
    std::uint64_t m_numUnderrun = 0;
    std::uint64_t m_numStarted = 0;
    std::uint64_t m_payloadSize = 0;
    std::atomic<bool> m_isGrabbing{false};
    std::uint64_t m_bufAnnounceMin = 0;
    std::uint64_t m_bufAlignment = 0;
    std::atomic<bool> m_killed{false};

private:
    bool IsInUse(const GenTLHandle* hBuffer) const;
    std::unique_ptr<MCBuffer> Withdraw(GenTLHandle* hBuffer);

    GenTLHandle* m_hInHand = nullptr;
    std::atomic<std::uint64_t> m_numFlushes{0};
    std::uint64_t m_numFlushesAtTake = 0;  // the receive thread's own
};

}  // namespace GenTL
