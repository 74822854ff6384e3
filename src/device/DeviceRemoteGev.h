/// The port onto a camera's own registers.
#pragma once

#include "modules/BaseModule.h"

#include <array>
#include <atomic>
#include <cstdint>

namespace GenTL {

class IHALGev;

/// Turns port accesses into GVCP transactions and tells where the camera's description lies.
///
/// Owns: what it read of the manifest table. Borrows: the control layer and the device handle. Threads: any
/// of the consumer's; an access of several chunks is several transactions. Locks: none.
class RemoteDeviceGev : public BaseModule
{
public:
    /// capabilities is register 0x0934; endianessMechanism 0 legacy, 1 standard; accessStatus a
    /// DEVICE_ACCESS_STATUS value. Reads the registers 0x0004 and 0x0D04, and goes on without what fails.
    RemoteDeviceGev(IHALGev* hal,
                    void* deviceHandle,
                    std::uint32_t capabilities,
                    long endianessMechanism,
                    const PortInfo& info,
                    long accessStatus);

    /// GC_ERR_INVALID_ADDRESS for what doesn't lie in 32 bits. A failure half-way leaves what was
    /// transferred.
    int ReadPort(unsigned long iAddress, void* pBuffer, unsigned long* piSize) override;
    int WritePort(unsigned long iAddress, const void* pBuffer, unsigned long* piSize) override;
    /// The first URL register (0x0200), or the second (0x0400) when the first can't be read.
    int GetPortURL(char* sURL, unsigned long* piSize) const override;
    int RegisterEvent(int iEventID, void** phEvent) override;
    int UnregisterEvent(int iEventID) override;
    /// Reads the manifest table (0x9000). 0 for a camera without one.
    int GetNumPortURLs(unsigned int* piNumURLs) override;
    /// Of a manifest entry that GetNumPortURLs has read.
    int GetPortURLInfo(
        unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize) override;
    int ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;
    int WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries) override;

    /// Bytes as they lie in the camera's memory.
    int ReadPortStandard(unsigned long iAddress, void* pBuffer, unsigned long* piSize);
    int WritePortStandard(unsigned long iAddress, const void* pBuffer, unsigned long* piSize);
    /// Four bytes are a register, in the byte order that the camera's device mode tells.
    int ReadPortLegacy(unsigned long iAddress, void* pBuffer, unsigned long* piSize);
    int WritePortLegacy(unsigned long iAddress, const void* pBuffer, unsigned long* piSize);

    void SetEndianessMechanism(long mechanism) { m_endianessMechanism = mechanism; }
    void SetAccessStatus(long status) { m_accessStatus = status; }

private:
    static constexpr unsigned kMaxManifestEntries = 63;  // what six bits can count

    struct ManifestWords
    {
        unsigned int first = 0;
        unsigned int second = 0;
    };

    bool HasBigEndianRegisters() const;
    int WriteAsRegisters(std::uint32_t address, const void* pBuffer, unsigned long size);
    int ReadManifestWords(unsigned int address, ManifestWords& words);
    unsigned int NumManifestEntries() const { return m_manifestHeader.first >> 26; }

    void* m_hDevice;
    IHALGev* m_pHal;
    std::uint32_t m_capabilities;
    std::atomic<long> m_endianessMechanism;
    ManifestWords m_manifestHeader;
    std::array<ManifestWords, kMaxManifestEntries> m_manifestEntries{};
    unsigned int m_deviceMode = 0;
    std::atomic<long> m_accessStatus;
};

}  // namespace GenTL
