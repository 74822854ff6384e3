/// The message channel of a GigE Vision camera.
#pragma once

#include "channel/MessageChannel.h"

#include <boost/thread/thread.hpp>

#include <memory>

namespace GenTL {

class IHALGev;

/// Sets up the camera's message channel and runs the thread that moves its events into buffers. EVENT and
/// EVENTDATA datagrams are delivered as they come, repeated ones too; none is acknowledged. Any other
/// datagram uses up a buffer, which is then in no queue until it is queued again.
///
/// Owns: the HAL from Open to Close, the receive thread from StartListening to StopListening. Borrows:
/// IHALGev and the device handle. Threads: the consumer's; the receive thread is GrabThread. Locks: as the
/// base class.
class MessageChannelGev : public MessageChannel
{
public:
    /// index is the channel's ID in decimal; accessMode is a DEVICE_ACCESS value.
    MessageChannelGev(IHALGev* pHal, void* device, unsigned index, int accessMode);
    /// Ends the thread and tells the camera nothing. A HAL that was given to Open stays its giver's.
    ~MessageChannelGev() override;

    // Port: GC_ERR_INVALID_HANDLE when closed, GC_ERR_NOT_IMPLEMENTED when open.
    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    // What needs an open channel answers GC_ERR_INVALID_HANDLE on a closed one.
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;
    /// Takes pHal over unless it fails; with null the channel makes its own.
    int Open(IHALGvmc* pHal, bool multicast) override;
    /// Ends the thread when it still runs, without a word to the camera.
    int Close() override;
    bool IsOpen() const override;
    int AllocAndAnnounceBuffer(std::size_t iSize, void* pPrivate, void** phBuffer) override;
    int QueueBuffer(void* hBuffer) override;
    int RevokeBuffer(void* hBuffer, void** ppPrivate) override;
    int GetBufferID(unsigned iIndex, void** phBuffer) const override;
    int GetBufferInfo(void* hBuffer, int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) override;
    /// GC_ERR_INVALID_BUFFER without an announced buffer.
    int StartListening() override;
    /// Waits until the thread has ended, 200 ms at most. The channel is stopped even when the camera couldn't
    /// be told; the code of that is the result.
    int StopListening() override;
    int Flush() override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) const override;

private:
    int CheckOpen(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) const;
    int RefusePort(const char* function = __builtin_FUNCTION(), int line = __builtin_LINE()) const;
    void GrabThread();
    void ReceiveEvents();
    void ReceiveEvent(unsigned char* packet);
    void StopThread();

    IHALGev* m_pHal;
    void* m_hDevice;
    IHALGvmc* m_pHalGvmc = nullptr;
    std::unique_ptr<IHALGvmc> m_pOwnHalGvmc;  // set when Open was given none
    boost::thread m_receiveThread;
    bool m_isOpen = false;
    bool m_multicast = false;
    int m_accessMode;
};

}  // namespace GenTL
