/// The values behind the Device module's register map.
#pragma once

#include "device/DeviceReg.h"
#include "frame/InfoUtility.h"

namespace GenTL {

class Device;

/// Answers from a Device, and keeps which of its streams the consumer looks at.
///
/// Owns: the selector. Borrows: the device, whose member this is. Threads: the consumer's, one at a time.
/// Locks: none.
class DeviceRegImpl : public DeviceReg
{
public:
    explicit DeviceRegImpl(Device* device) : m_pDevice(device) {}

    int GetDeviceID(void* pBuffer, unsigned long* piSize) override;
    int GetDeviceSerialNumber(void* pBuffer, unsigned long* piSize) override;
    int GetDeviceUserID(void* pBuffer, unsigned long* piSize) override;
    int GetDeviceVendorName(void* pBuffer, unsigned long* piSize) override;
    int GetDeviceModelName(void* pBuffer, unsigned long* piSize) override;
    int GetDeviceVersion(void* pBuffer, unsigned long* piSize) override;
    int GetDeviceType_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetDeviceDisplayName(void* pBuffer, unsigned long* piSize) override;
    int GetDeviceAccessStatus_Reg(void* pBuffer, unsigned long* piSize) override;
    /// Without effect: the status follows from how the device was opened.
    int SetDeviceAccessStatus_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetDeviceEndianessMechanism_Reg(void* pBuffer, unsigned long* piSize) override;
    /// 0 legacy, 1 standard, 8 bytes. Reaches the camera's port at once.
    int SetDeviceEndianessMechanism_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetGevDeviceIPAddress_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevDeviceSubnetMask_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevDeviceMACAddress_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevDeviceGateway_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetGevDeviceGateway_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    int GetStreamSelector_Reg(void* pBuffer, unsigned long* piSize) override;
    /// Takes the low 4 bytes; fewer give GC_ERR_BUFFER_TOO_SMALL. Where no such stream is, the answer is
    /// GC_ERR_INVALID_INDEX and the value stays all the same. Neither error is cached.
    int SetStreamSelector_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetStreamID(void* pBuffer, unsigned long* piSize) override;
    int GetStreamID_Available_Reg(void* pBuffer, unsigned long* piSize) override;
    /// Sends the command with the fields below, whatever is written; answers what the sending gave.
    int SetActionCommandFireCommand_Reg(const void* pBuffer, unsigned long* piSize) override;

    // The fields of the action command: 4 bytes each, the execute time 8; *piSize stays. A null argument
    // gives GC_ERR_INVALID_HANDLE, less room GC_ERR_BUFFER_TOO_SMALL, neither of them cached.
    int GetActionCommandDeviceKey_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandDeviceKey_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetActionCommandGroupKey_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandGroupKey_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetActionCommandGroupMask_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandGroupMask_Reg(const void* pBuffer, unsigned long* piSize) override;
    int GetActionCommandExecuteTime_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandExecuteTime_Reg(const void* pBuffer, unsigned long* piSize) override;

    /// Copies the whole description, whatever *piSize says: the buffer must hold the size in the port's URL.
    int GetLocalTLXML_Reg(void* pBuffer, unsigned long* piSize) override;

    // At no address: an action command of a device goes to that device.
    int GetActionCommandTargetIP_Reg(void* pBuffer, unsigned long* piSize) override;
    int SetActionCommandTargetIP_Reg(const void* pBuffer, unsigned long* piSize) override;

private:
    Device* m_pDevice;
    long m_streamSelector = 0;
    InfoUtility m_info;
};

}  // namespace GenTL
