#include "device/DeviceRemoteGev.h"

#include "frame/Error.h"
#include "frame/PortableUtil.h"
#include "gev/IHALGev.h"
#include "log/GLogger.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace GenTL {
namespace {

// Bootstrap registers.
constexpr unsigned int kDeviceModeAddress = 0x0004;
constexpr unsigned int kFirstUrlAddress = 0x0200;
constexpr unsigned int kSecondUrlAddress = 0x0400;
constexpr unsigned int kScpsAddress = 0x0D04;
constexpr unsigned int kManifestAddress = 0x9000;
constexpr unsigned int kManifestEntriesAddress = 0x9008;
constexpr unsigned int kManifestEntrySize = 8;

// Their bits.
constexpr unsigned int kDeviceModeBigEndian = 0x80000000;
constexpr unsigned int kScpsBigEndian = 0x20000000;
constexpr std::uint32_t kCapabilityWriteMem = 0x00000002;
constexpr std::uint32_t kCapabilityManifest = 0x04000000;

constexpr long kLegacy = 0;
constexpr long kStandard = 1;

constexpr unsigned long kMaxMemory = 536;    // bytes of one READMEM or WRITEMEM
constexpr unsigned long kMaxRegisters = 67;  // of one WRITEREG here
constexpr unsigned long kMaxAddress = 0xFFFFFFFF;

bool LiesInAddressSpace(unsigned long address, unsigned long size)
{
    return address <= kMaxAddress && size <= kMaxAddress - address + 1;
}

/// Splits a transfer of size bytes at address into what one command carries. The first failure ends it.
template <typename Transfer>
int InChunks(unsigned long address,
             unsigned long size,
             Transfer transfer,
             const char* function = __builtin_FUNCTION(),
             int line = __builtin_LINE())
{
    if (!LiesInAddressSpace(address, size)) {
        return StoreName(GC_ERR_INVALID_ADDRESS, function, line);
    }
    unsigned long done = 0;
    do {
        const unsigned long chunk = std::min(size - done, kMaxMemory);
        if (const int code = transfer(static_cast<unsigned int>(address + done), done, chunk);
            code != GC_ERR_SUCCESS) {
            return code;
        }
        done += chunk;
    } while (done < size);
    return GC_ERR_SUCCESS;
}

int ReadPortURL(IHALGev* hal, void* deviceHandle, unsigned int address, char* url, unsigned long* size)
{
    if (size == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    char text[kMaxMemory] = {};
    if (const int code = hal->ReadMem(deviceHandle, address, text, sizeof text); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    const std::size_t length = strnlen_portable(text, sizeof text);
    const std::size_t needed = length + 2;  // two NULs end it
    if (url != nullptr) {
        if (*size < needed) {
            return Raise(GC_ERR_BUFFER_TOO_SMALL, "*piSize=" + std::to_string(*size) + " < size=" +
                                                      std::to_string(needed) + ". iSize must be >= size");
        }
        memcpy_portable(url, *size, text, length);
        url[length] = '\0';
        url[length + 1] = '\0';
    }
    *size = needed;
    return GC_ERR_SUCCESS;
}

}  // namespace

RemoteDeviceGev::RemoteDeviceGev(IHALGev* hal,
                                 void* deviceHandle,
                                 std::uint32_t capabilities,
                                 long endianessMechanism,
                                 const PortInfo& info,
                                 long accessStatus)
    : m_hDevice(deviceHandle),
      m_pHal(hal),
      m_capabilities(capabilities),
      m_endianessMechanism(endianessMechanism),
      m_accessStatus(accessStatus)
{
    m_portInfo = info;
    m_portInfo.module = "Device";
    m_portInfo.portName = "Device";

    unsigned int deviceMode = 0;
    if (m_pHal->ReadReg(m_hDevice, kDeviceModeAddress, deviceMode) == GC_ERR_SUCCESS) {
        m_deviceMode = deviceMode;
    }
    unsigned int packetSize = 0;
    if (const int code = m_pHal->ReadReg(m_hDevice, kScpsAddress, packetSize); code != GC_ERR_SUCCESS) {
        Append(code, ":IGNORABLE: RemoteDeviceGev endianness bit unable to be read");
        packetSize = 0;
    }
    m_portInfo.bigEndian = (packetSize & kScpsBigEndian) != 0;
    m_portInfo.littleEndian = !m_portInfo.bigEndian;
}

int RemoteDeviceGev::ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize)
{
    if (pBuffer == nullptr || piSize == nullptr) {
        return StoreName(GC_ERR_INVALID_PARAMETER);
    }
    if (m_accessStatus == DEVICE_ACCESS_STATUS_UNKNOWN) {
        return StoreName(GC_ERR_ABORT);
    }
    switch (m_endianessMechanism) {
        case kLegacy:
            return ReadPortLegacy(iAddress, pBuffer, piSize);
        case kStandard:
            return ReadPortStandard(iAddress, pBuffer, piSize);
        default:
            GLogger::Error("RemoteDeviceGev::ReadPort  m_endiannessMechanism is not set to valid value");
            return StoreName(GC_ERR_INVALID_ID);
    }
}

int RemoteDeviceGev::WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize)
{
    if (pBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "pBuffer==nullptr");
    }
    if (piSize == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    if (m_accessStatus == DEVICE_ACCESS_STATUS_UNKNOWN) {
        return Raise(GC_ERR_ABORT, "m_accessStatus==DEVICE_ACCESS_STATUS_UNKNOWN");
    }
    switch (m_endianessMechanism) {
        case kLegacy:
            return WritePortLegacy(iAddress, pBuffer, piSize);
        case kStandard:
            return WritePortStandard(iAddress, pBuffer, piSize);
        default:
            GLogger::Error("RemoteDeviceGev::WritePort  m_endiannessMechanism is not set to valid value");
            return Raise(GC_ERR_INVALID_ID, "m_endiannessMechanism is not set to a valid value");
    }
}

int RemoteDeviceGev::ReadPortStandard(unsigned long iAddress, void* pBuffer, unsigned long* piSize)
{
    return InChunks(iAddress, *piSize, [&](unsigned int address, unsigned long done, unsigned long chunk) {
        return m_pHal->ReadMem(m_hDevice, address, static_cast<char*>(pBuffer) + done, chunk);
    });
}

int RemoteDeviceGev::WritePortStandard(unsigned long iAddress, const void* pBuffer, unsigned long* piSize)
{
    return InChunks(iAddress, *piSize, [&](unsigned int address, unsigned long done, unsigned long chunk) {
        return m_pHal->WriteMem(m_hDevice, address, static_cast<const char*>(pBuffer) + done, chunk);
    });
}

int RemoteDeviceGev::ReadPortLegacy(unsigned long iAddress, void* pBuffer, unsigned long* piSize)
{
    if (pBuffer == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "pBuffer==nullptr");
    }
    if (piSize == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
    }
    unsigned int value = 0;
    if (*piSize != sizeof value) {
        return ReadPortStandard(iAddress, pBuffer, piSize);
    }
    if (!LiesInAddressSpace(iAddress, sizeof value)) {
        return StoreName(GC_ERR_INVALID_ADDRESS);
    }
    if (const int code = m_pHal->ReadReg(m_hDevice, static_cast<unsigned int>(iAddress), value);
        code != GC_ERR_SUCCESS) {
        return code;
    }
    value = HasBigEndianRegisters() ? __builtin_bswap32(value) : value;
    std::memcpy(pBuffer, &value, sizeof value);
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::WritePortLegacy(unsigned long iAddress, const void* pBuffer, unsigned long* piSize)
{
    unsigned int value = 0;
    const bool isRegister = *piSize == sizeof value;
    if (!isRegister && (m_capabilities & kCapabilityWriteMem) != 0) {
        return WritePortStandard(iAddress, pBuffer, piSize);
    }
    if (!LiesInAddressSpace(iAddress, *piSize)) {
        return StoreName(GC_ERR_INVALID_ADDRESS);
    }
    const auto address = static_cast<std::uint32_t>(iAddress);
    if (!isRegister) {
        return WriteAsRegisters(address, pBuffer, *piSize);
    }
    std::memcpy(&value, pBuffer, sizeof value);
    return m_pHal->WriteReg(m_hDevice, address, HasBigEndianRegisters() ? __builtin_bswap32(value) : value);
}

/// Whole registers only: the bytes behind the last one are left out.
int RemoteDeviceGev::WriteAsRegisters(std::uint32_t address, const void* pBuffer, unsigned long size)
{
    unsigned int values[kMaxRegisters];
    const unsigned long count = size / sizeof values[0];
    unsigned long done = 0;
    do {
        const unsigned long chunk = std::min(count - done, kMaxRegisters);
        const unsigned long offset = done * sizeof values[0];
        std::memcpy(values, static_cast<const char*>(pBuffer) + offset, chunk * sizeof values[0]);
        if (const int code =
                m_pHal->WriteRegBlock(m_hDevice, address + static_cast<std::uint32_t>(offset), values, chunk);
            code != GC_ERR_SUCCESS) {
            return code;
        }
        done += chunk;
    } while (done < count);
    return GC_ERR_SUCCESS;
}

bool RemoteDeviceGev::HasBigEndianRegisters() const
{
    return (m_deviceMode & kDeviceModeBigEndian) != 0;
}

int RemoteDeviceGev::GetPortURL(char* sURL, unsigned long* piSize) const
{
    int code = ReadPortURL(m_pHal, m_hDevice, kFirstUrlAddress, sURL, piSize);
    if (code != GC_ERR_SUCCESS && code != GC_ERR_BUFFER_TOO_SMALL) {
        code = ReadPortURL(m_pHal, m_hDevice, kSecondUrlAddress, sURL, piSize);
    }
    return code == GC_ERR_SUCCESS ? code : AppendName(code);
}

int RemoteDeviceGev::RegisterEvent(int, void**)
{
    return StoreName(GC_ERR_NOT_AVAILABLE);
}
int RemoteDeviceGev::UnregisterEvent(int)
{
    return StoreName(GC_ERR_NOT_AVAILABLE);
}

int RemoteDeviceGev::GetNumPortURLs(unsigned int* piNumURLs)
{
    if (piNumURLs == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piNumURLs==nullptr");
    }
    if ((m_capabilities & kCapabilityManifest) == 0) {
        *piNumURLs = 0;
        return GC_ERR_SUCCESS;
    }
    if (const int code = ReadManifestWords(kManifestAddress, m_manifestHeader); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    const unsigned int count = NumManifestEntries();
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned int address = kManifestEntriesAddress + kManifestEntrySize * i;
        if (const int code = ReadManifestWords(address, m_manifestEntries[i]); code != GC_ERR_SUCCESS) {
            return AppendName(code);
        }
    }
    *piNumURLs = count;
    return GC_ERR_SUCCESS;
}

int RemoteDeviceGev::ReadManifestWords(unsigned int address, ManifestWords& words)
{
    unsigned int values[2] = {};
    const int code = m_pHal->ReadRegBlock(m_hDevice, address, values, std::size(values));
    if (code == GC_ERR_SUCCESS) {
        words = {values[0], values[1]};
    }
    return code;
}

int RemoteDeviceGev::GetPortURLInfo(
    unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (iURLIndex >= NumManifestEntries()) {
        return StoreName(GC_ERR_INVALID_INDEX);
    }
    const ManifestWords entry = m_manifestEntries[iURLIndex];
    const auto answer = [&](auto value) { return m_info.SetInfo(value, piType, pBuffer, piSize); };
    const auto answerBits = [&](unsigned int shift) {
        return answer(static_cast<int>(entry.first >> shift & 63));
    };
    switch (iInfoCmd) {
        case URL_INFO_URL: {
            if (piType == nullptr) {
                return Raise(GC_ERR_INVALID_PARAMETER, "piType==nullptr");
            }
            const int code =
                ReadPortURL(m_pHal, m_hDevice, entry.second, static_cast<char*>(pBuffer), piSize);
            if (code != GC_ERR_SUCCESS) {
                return AppendName(code);
            }
            *piType = INFO_DATATYPE_STRING;
            return GC_ERR_SUCCESS;
        }
        case URL_INFO_SCHEMA_VER_MAJOR:
            return answerBits(8);
        case URL_INFO_SCHEMA_VER_MINOR:
            return answerBits(2);
        case URL_INFO_FILE_VER_MAJOR:
            return answerBits(26);
        case URL_INFO_FILE_VER_MINOR:
            return answerBits(20);
        case URL_INFO_FILE_VER_SUBMINOR:
            return answerBits(14);
        case URL_INFO_FILE_REGISTER_ADDRESS:
            return answer(static_cast<unsigned long>(entry.second));
        case URL_INFO_SCHEME:
            return answer(0);
        case URL_INFO_FILE_SHA1_HASH:
            return Raise(GC_ERR_NOT_IMPLEMENTED, "URL_INFO_CMD URL_INFO_FILE_SHA1_HASH is not implemented");
        case URL_INFO_FILE_SIZE:
            return Raise(GC_ERR_NOT_IMPLEMENTED, "URL_INFO_CMD URL_INFO_FILE_SIZE is not implemented");
        case URL_INFO_FILENAME:
            return Raise(GC_ERR_NOT_IMPLEMENTED, "URL_INFO_CMD URL_INFO_FILENAME is not implemented");
        default:
            return Raise(GC_ERR_INVALID_INDEX, kUrlInfoCommands);
    }
}

int RemoteDeviceGev::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_AVAILABLE);
}

int RemoteDeviceGev::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_AVAILABLE);
}

}  // namespace GenTL
