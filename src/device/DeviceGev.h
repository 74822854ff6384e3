/// One opened GigE Vision camera.
#pragma once

#include "device/Device.h"

#include <boost/thread/thread.hpp>

#include <atomic>
#include <memory>
#include <string>

namespace GenTL {

class IHALGev;
class RemoteDeviceGev;

/// Takes control of the camera, keeps it by a heartbeat, and hands out its streams and its port.
///
/// Owns: the streams, the message channel, the remote device port, the heartbeat thread, and the device
/// handle, which Close closes. Borrows: the control layer, which lives as long as a device handle is open.
/// After a failed Open nobody calls Close: a heartbeat that runs by then goes on with the device handle, and
/// the camera stays taken. Threads: the consumer's; the heartbeat thread shares only control layer and
/// handle. Locks: none.
class DeviceGev : public Device
{
public:
    /// parent is the interface's handle.
    DeviceGev(IHALGev* hal, const std::string& interfaceId, void* parent, void* deviceHandle);
    ~DeviceGev() override;

    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    /// EVENT_REMOTE_DEVICE gives the camera's events; once at a time (GC_ERR_RESOURCE_IN_USE). They come by
    /// multicast when stream 0 is set to it, else to whoever has control. A failure leaves nothing open.
    int RegisterEvent(int iEventID, void** phEvent) override;
    /// No thread may be in EventGetData any more. Closes the camera's stream channel 0 as well. The event is
    /// gone whatever fails; the result is the first failure's code.
    int UnregisterEvent(int iEventID) override;
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    /// CONTROL and EXCLUSIVE write CCP (0x0A00), and fail when another application has the camera; other
    /// flags open for reading.
    int Open(int iOpenFlags, void* hOwn) override;
    /// Stops what runs, gives up control and closes the device handle, whatever fails on the way.
    int Close() override;
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, std::size_t* piSize) override;
    /// One port, with a new handle for each call.
    int GetPort(void** phRemoteDevice) override;
    int GetNumDataStreams(unsigned int* piNumDataStreams) override;
    int GetDataStreamID(unsigned int iIndex, char* sDataStreamID, std::size_t* piSize) override;
    /// The ID is the stream's index in decimal; what follows the number is not looked at.
    int OpenDataStream(const char* sDataStreamID, void** phDataStream) override;
    int OpenDataStream(const char* sDataStreamID, void** phDataStream, IHALGvsp* pHal) override;
    int GetParentIF(void** phIface) override;
    int SetInfo(int iInfoCmd, int iType, const void* pBuffer, std::size_t iSize) override;
    /// ACTION_CMD to this camera.
    int SendActionCommand(unsigned int iDeviceKey,
                          unsigned int iGroupKey,
                          unsigned int iGroupMask,
                          unsigned long iActionTime) override;

private:
    void ReadIdentity();
    int InitializeStreams(void* hOwn, int iOpenFlags);
    int AddStream(void* hOwn, unsigned int index, int iOpenFlags);
    int InitializeMessageChannels(int iOpenFlags);
    bool IsMulticast() const;
    int TakeControl(int iOpenFlags);
    int ReadTimestampTickFrequency();
    int ConfigureDeviceTimeout();
    void DeleteStreams();
    void DeleteMessageChannels();
    int FailOpen(const char* log, int code, const char* text, int line = __builtin_LINE());
    void StartHeartbeat();
    void StopHeartbeat();
    int GiveUpControl();

    IHALGev* m_pHal;
    void* m_hParent;
    void* m_hDevice;
    std::unique_ptr<RemoteDeviceGev> m_pRemoteDevice;  // made by the first GetPort
    void* m_hRemoteDevice = nullptr;                   // the latest handle to it
    bool m_isHeartbeatStarted = false;
    boost::thread m_heartbeatThread;
    std::string m_interfaceId;
    unsigned int m_capabilities = 0;            // register 0x0934
    std::atomic<long> m_endianessMechanism{0};  // 0 legacy, 1 standard
    bool m_isClosed = false;
};

}  // namespace GenTL
