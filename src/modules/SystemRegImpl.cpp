#include "modules/SystemRegImpl.h"

#include "frame/Error.h"
#include "modules/RegisterField.h"
#include "modules/System.h"
#include "modules/ThreadPriority.h"
#include "xml/LocalXml.h"

#include <atomic>
#include <cstring>
#include <iterator>
#include <string>

namespace GenTL {
namespace {

constexpr long kSfncVersion[] = {1, 1, 1};
constexpr long kGevVersion[] = {2, 0};
constexpr unsigned long kUpdateTimeoutMs = 100;
constexpr std::uint64_t kNumberSize = 8;

/// By the value of ThreadSelection.
std::atomic<long>* const kPriorities[] = {
    &ThreadPriority::m_priorityGrabThread,
    &ThreadPriority::m_priorityEventThread,
    &ThreadPriority::m_priorityHeartbeatThread,
};
constexpr std::uint64_t kHighestPriority = 3;

int CheckNumber(const void* pBuffer, const unsigned long* piSize)
{
    if (pBuffer == nullptr || piSize == nullptr) {
        return Store(GC_ERR_INVALID_PARAMETER);
    }
    return *piSize < kNumberSize ? Store(GC_ERR_BUFFER_TOO_SMALL) : static_cast<int>(GC_ERR_SUCCESS);
}

void PutNumber(std::uint64_t value, void* pBuffer, unsigned long* piSize)
{
    std::memcpy(pBuffer, &value, sizeof value);
    *piSize = sizeof value;
}

std::uint64_t TakeNumber(const void* pBuffer)
{
    std::uint64_t value = 0;
    std::memcpy(&value, pBuffer, sizeof value);
    return value;
}

}  // namespace

int SystemRegImpl::SelectedInterfaceInfo(int command, void* pBuffer, unsigned long* piSize)
{
    char id[kTextLength] = {};
    unsigned long size = sizeof id;
    const int code = m_pSystem->GetInterfaceID(m_interfaceSelector.Index(), id, &size);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    int type = 0;
    return m_pSystem->GetInterfaceInfo(id, command, &type, pBuffer, piSize);
}

int SystemRegImpl::GetTLID(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pSystem, TL_INFO_ID, pBuffer, piSize);
}

int SystemRegImpl::GetTLVendorName(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pSystem, TL_INFO_VENDOR, pBuffer, piSize);
}

int SystemRegImpl::GetTLModelName(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pSystem, TL_INFO_MODEL, pBuffer, piSize);
}

int SystemRegImpl::GetTLVersion(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pSystem, TL_INFO_VERSION, pBuffer, piSize);
}

int SystemRegImpl::GetTLFileName(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pSystem, TL_INFO_NAME, pBuffer, piSize);
}

int SystemRegImpl::GetTLDisplayName(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pSystem, TL_INFO_DISPLAYNAME, pBuffer, piSize);
}

int SystemRegImpl::GetTLPath(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pSystem, TL_INFO_PATHNAME, pBuffer, piSize);
}

int SystemRegImpl::GetTLType_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kGigEVision, pBuffer, piSize);
}

int SystemRegImpl::GetGenTLVersionMajor_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pSystem, TL_INFO_GENTL_VER_MAJOR, pBuffer, piSize);
}

int SystemRegImpl::GetGenTLVersionMinor_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadInfo(*m_pSystem, TL_INFO_GENTL_VER_MINOR, pBuffer, piSize);
}

int SystemRegImpl::GetGenTLSFNCVersionMajor_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kSfncVersion[0], pBuffer, piSize);
}

int SystemRegImpl::GetGenTLSFNCVersionMinor_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kSfncVersion[1], pBuffer, piSize);
}

int SystemRegImpl::GetGenTLSFNCVersionSubMinor_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kSfncVersion[2], pBuffer, piSize);
}

int SystemRegImpl::GetGevVersionMajor_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kGevVersion[0], pBuffer, piSize);
}

int SystemRegImpl::GetGevVersionMinor_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kGevVersion[1], pBuffer, piSize);
}

int SystemRegImpl::SetInterfaceUpdateList_Reg(const void*, unsigned long*)
{
    bool changed = false;
    return m_pSystem->UpdateInterfaceList(&changed, kUpdateTimeoutMs);
}

int SystemRegImpl::GetInterfaceSelector_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, long{m_interfaceSelector.Value()}, pBuffer, piSize);
}

int SystemRegImpl::SetInterfaceSelector_Reg(const void* pBuffer, unsigned long* piSize)
{
    unsigned int count = 0;
    if (const int code = m_pSystem->GetNumInterfaces(&count); code != GC_ERR_SUCCESS) {
        return code;
    }
    return m_interfaceSelector.Write(pBuffer, piSize, count);
}

int SystemRegImpl::GetInterfaceSelector_Min_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, 0, pBuffer, piSize);
}

int SystemRegImpl::GetInterfaceSelector_Max_Reg(void* pBuffer, unsigned long* piSize)
{
    unsigned int count = 0;
    if (const int code = m_pSystem->GetNumInterfaces(&count); code != GC_ERR_SUCCESS) {
        return code;
    }
    return ReadValue(m_info, IndexSelector::Highest(count), pBuffer, piSize);
}

int SystemRegImpl::GetInterfaceID(void* pBuffer, unsigned long* piSize)
{
    char id[kTextLength] = {};
    unsigned long size = sizeof id;
    const int code = m_pSystem->GetInterfaceID(m_interfaceSelector.Index(), id, &size);
    if (code != GC_ERR_SUCCESS) {
        return code;
    }
    return ReadValue(m_info, std::string(id), pBuffer, piSize);
}

int SystemRegImpl::GetInterfaceID_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    unsigned int count = 0;
    const bool selected =
        m_pSystem->GetNumInterfaces(&count) == GC_ERR_SUCCESS && m_interfaceSelector.IsWithin(count);
    return ReadValue(m_info, static_cast<int>(selected), pBuffer, piSize);
}

int SystemRegImpl::GetGevInterfaceMACAddress_Reg(void* pBuffer, unsigned long* piSize)
{
    return SelectedInterfaceInfo(INTERFACE_INFO_GEV_MAC_ADDRESS, pBuffer, piSize);
}

int SystemRegImpl::GetGevInterfaceMACAddress_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kNotAvailable, pBuffer, piSize);
}

int SystemRegImpl::GetGevInterfaceDefaultIPAddress_Reg(void* pBuffer, unsigned long* piSize)
{
    return SelectedInterfaceInfo(INTERFACE_INFO_GEV_SUBNET_IP_ADDRESS, pBuffer, piSize);
}

int SystemRegImpl::GetGevInterfaceDefaultIPAddress_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kNotAvailable, pBuffer, piSize);
}

int SystemRegImpl::GetGevInterfaceDefaultSubnetMask_Reg(void* pBuffer, unsigned long* piSize)
{
    return SelectedInterfaceInfo(INTERFACE_INFO_GEV_SUBNET_MASK, pBuffer, piSize);
}

int SystemRegImpl::GetGevInterfaceDefaultSubnetMask_Available_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadValue(m_info, kNotAvailable, pBuffer, piSize);
}

int SystemRegImpl::SetActionCommandFireCommand_Reg(const void*, unsigned long*)
{
    unsigned int deviceKey = 0;
    unsigned int groupKey = 0;
    unsigned int groupMask = 0;
    unsigned int targetIP = 0;
    unsigned long executeTime = 0;
    m_pSystem->GetActionCommandDeviceKey(&deviceKey);
    m_pSystem->GetActionCommandGroupKey(&groupKey);
    m_pSystem->GetActionCommandGroupMask(&groupMask);
    m_pSystem->GetActionCommandTargetIP(&targetIP);
    m_pSystem->GetActionCommandExecuteTime(&executeTime);
    return m_pSystem->SendActionCommand(deviceKey, groupKey, groupMask, targetIP, executeTime);
}

int SystemRegImpl::GetActionCommandDeviceKey_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pSystem, &System::GetActionCommandDeviceKey, pBuffer, piSize);
}

int SystemRegImpl::SetActionCommandDeviceKey_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pSystem, &System::SetActionCommandDeviceKey, pBuffer, piSize);
}

int SystemRegImpl::GetActionCommandGroupKey_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pSystem, &System::GetActionCommandGroupKey, pBuffer, piSize);
}

int SystemRegImpl::SetActionCommandGroupKey_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pSystem, &System::SetActionCommandGroupKey, pBuffer, piSize);
}

int SystemRegImpl::GetActionCommandGroupMask_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pSystem, &System::GetActionCommandGroupMask, pBuffer, piSize);
}

int SystemRegImpl::SetActionCommandGroupMask_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pSystem, &System::SetActionCommandGroupMask, pBuffer, piSize);
}

int SystemRegImpl::GetActionCommandTargetIP_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pSystem, &System::GetActionCommandTargetIP, pBuffer, piSize);
}

int SystemRegImpl::SetActionCommandTargetIP_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pSystem, &System::SetActionCommandTargetIP, pBuffer, piSize);
}

int SystemRegImpl::GetActionCommandExecuteTime_Reg(void* pBuffer, unsigned long* piSize)
{
    return ReadField(*m_pSystem, &System::GetActionCommandExecuteTime, pBuffer, piSize);
}

int SystemRegImpl::SetActionCommandExecuteTime_Reg(const void* pBuffer, unsigned long* piSize)
{
    return WriteField(*m_pSystem, &System::SetActionCommandExecuteTime, pBuffer, piSize);
}

int SystemRegImpl::GetThreadSelection_Reg(void* pBuffer, unsigned long* piSize)
{
    if (const int code = CheckNumber(pBuffer, piSize); code != GC_ERR_SUCCESS) {
        return code;
    }
    PutNumber(m_threadSelection, pBuffer, piSize);
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::SetThreadSelection_Reg(const void* pBuffer, unsigned long* piSize)
{
    if (const int code = CheckNumber(pBuffer, piSize); code != GC_ERR_SUCCESS) {
        return code;
    }
    const std::uint64_t value = TakeNumber(pBuffer);
    if (value >= std::size(kPriorities)) {
        return Store(GC_ERR_INVALID_VALUE);
    }
    m_threadSelection = value;
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::GetThreadPriority_Reg(void* pBuffer, unsigned long* piSize)
{
    if (const int code = CheckNumber(pBuffer, piSize); code != GC_ERR_SUCCESS) {
        return code;
    }
    PutNumber(static_cast<std::uint64_t>(kPriorities[m_threadSelection]->load()), pBuffer, piSize);
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::SetThreadPriority_Reg(const void* pBuffer, unsigned long* piSize)
{
    if (const int code = CheckNumber(pBuffer, piSize); code != GC_ERR_SUCCESS) {
        return code;
    }
    const std::uint64_t value = TakeNumber(pBuffer);
    if (value > kHighestPriority) {
        return Store(GC_ERR_INVALID_VALUE);
    }
    *kPriorities[m_threadSelection] = static_cast<long>(value);
    return GC_ERR_SUCCESS;
}

int SystemRegImpl::GetWriteDriverLogToFilePath_Reg(void*, unsigned long*)
{
    return GC_ERR_NOT_IMPLEMENTED;
}

int SystemRegImpl::SetWriteDriverLogToFilePath_Reg(const void*, unsigned long*)
{
    return GC_ERR_NOT_IMPLEMENTED;
}

int SystemRegImpl::SetWriteDriverLogToFileCommand_Reg(const void*, unsigned long*)
{
    return GC_ERR_NOT_IMPLEMENTED;
}

int SystemRegImpl::GetLocalTLXML_Reg(void* pBuffer, unsigned long*)
{
    std::memcpy(pBuffer, kSystemXml.data(), kSystemXml.size());
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
