/// The exported functions: each checks the library, the handle and its kind, and forwards to a module.
#include "frame/GenTL.h"

#include "buffers/IBuffer.h"
#include "buffers/IEvent.h"
#include "device/IDevice.h"
#include "device/ProtectedDeviceRegistry.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"
#include "frame/InfoUtility.h"
#include "frame/PortableUtil.h"
#include "frame/TLInfo.h"
#include "gev/RandomMutex.h"
#include "log/GLogger.h"
#include "log/HLogger.h"
#include "modules/FileUtility.h"
#include "modules/IBaseModule.h"
#include "modules/IInterface.h"
#include "modules/System.h"
#include "stream/IDataStream.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

// Exported names that consumers know. The stream is never opened: nothing is traced to a file.
GENTL_API extern std::ofstream file;
GENTL_API extern bool streamCreated;
std::ofstream file;
bool streamCreated = false;

namespace GenTL {
namespace {

using Lock = boost::lock_guard<boost::mutex>;

// The mutexes are never destroyed: a consumer's static objects may call in while the process ends.
// Order: g_libMutex before g_isSystemOpenMutex.
boost::mutex& g_libMutex = *new boost::mutex();           // guards g_isLibInit and the two sinks
boost::mutex& g_isSystemOpenMutex = *new boost::mutex();  // guards g_isSystemOpen; held through TLOpen
bool g_isLibInit = false;
bool g_isSystemOpen = false;
GLogger* g_pGLogger = nullptr;
HLogger* g_pHLogger = nullptr;

constexpr const char* kNotInitialized = "GenTL::GCInitLib() must be called before any other function";

bool isLibInitialized()
{
    const Lock lock(g_libMutex);
    return g_isLibInit;
}

/// The mark that every traced entry point leaves; any thread may be the first.
void TraceEnter()
{
    __atomic_store_n(&streamCreated, true, __ATOMIC_RELAXED);
}

/// The checks that all frames begin with: 0, or the code with its error reported in the caller's name.
int CheckLibraryAndHandle(void* h, const char* function, int line)
{
    TraceEnter();
    if (!isLibInitialized()) {
        return Raise(GC_ERR_NOT_INITIALIZED, kNotInitialized, function, line);
    }
    const int code = CheckHandle(h);
    return code == GC_ERR_SUCCESS ? code : AppendName(code, function, line);
}

/// The module as the interface that an entry point speaks to; the port's own interface needs no cast.
template <typename Module>
Module* CastModule(void* h)
{
    if constexpr (std::is_same_v<Module, IBaseModule>) {
        return CastHandle(h);
    } else {
        return dynamic_cast<Module*>(CastHandle(h));
    }
}

/// The frame of port, device, stream and event functions: what fails below has reported itself.
template <typename Module, typename Operation>
int Forward(void* h,
            Operation operation,
            const char* function = __builtin_FUNCTION(),
            int line = __builtin_LINE())
{
    if (const int code = CheckLibraryAndHandle(h, function, line); code != GC_ERR_SUCCESS) {
        return code;
    }
    auto* module = CastModule<Module>(h);
    return module != nullptr ? operation(*module) : Store(GC_ERR_INVALID_HANDLE);
}

template <typename Module>
constexpr const char* kCastFailure = nullptr;
template <>
constexpr const char* kCastFailure<ISystem> = "failed to cast hTL to ISystem*";
template <>
constexpr const char* kCastFailure<IInterface> = "failed to cast hIface to IInterface*";

/// The frame of system and interface functions: names itself in the stack when anything below fails.
template <typename Module, typename Operation>
int ForwardAndAppend(void* h,
                     Operation operation,
                     const char* function = __builtin_FUNCTION(),
                     int line = __builtin_LINE())
{
    if (const int code = CheckLibraryAndHandle(h, function, line); code != GC_ERR_SUCCESS) {
        return code;
    }
    auto* module = CastModule<Module>(h);
    if (module == nullptr) {
        return Raise(GC_ERR_INVALID_HANDLE, kCastFailure<Module>, function, line);
    }
    const int code = operation(*module);
    return code == GC_ERR_SUCCESS ? code : AppendName(code, function, line);
}

/// The frame of the functions on a buffer of a stream. The operation gets the buffer's handle.
template <typename Operation>
int ForwardWithBuffer(void* hStream,
                      void* hBuffer,
                      Operation operation,
                      const char* function = __builtin_FUNCTION(),
                      int line = __builtin_LINE())
{
    if (const int code = CheckLibraryAndHandle(hStream, function, line); code != GC_ERR_SUCCESS) {
        return code;
    }
    if (const int code = CheckHandle(hBuffer); code != GC_ERR_SUCCESS) {
        return AppendName(code, function, line);
    }
    auto* stream = CastModule<IDataStream>(hStream);
    if (stream == nullptr || CastHandleToIBufferPtr(hBuffer) == nullptr) {
        return Store(GC_ERR_INVALID_HANDLE);
    }
    return operation(*stream);
}

/// Closes and deletes a module of the two upper levels with its handle, whatever fails on the way.
template <typename Module>
int CloseAndDelete(Module* module, void* h, const char* unknownState, const char* function, int line)
{
    int code = module->Close();
    if (code != GC_ERR_SUCCESS) {
        AppendName(code, function, line);
    }
    const int deleted = DeleteHandle(h);
    delete module;
    if (deleted != GC_ERR_SUCCESS) {
        code = AppendName(deleted, function, line);
    }
    return code == GC_ERR_SUCCESS ? code : Append(code, unknownState, function, line);
}

std::string ErrorStackText(Error e)
{
    // A stream would print the code in the digit groups of the program's locale.
    std::string text = "Error Stack:\n";
    int code = 0;
    std::string codeName;
    std::string message;
    while (e.PopError(code, codeName, message) == GC_ERR_SUCCESS) {
        text.append("  ").append(std::to_string(code)).append(" ").append(codeName);
        text.append(" :\n      ").append(message).append("\n");
    }
    return text;
}

/// Copies text with its terminator into a buffer of *piSize bytes, which it clears first.
bool CopyWhenItFits(const std::string& text, char* sText, size_t* piSize)
{
    const size_t needed = text.size() + 1;
    if (needed > *piSize) {
        return false;
    }
    std::memset(sText, 0, *piSize);
    memcpy_portable(sText, *piSize, text.c_str(), needed);
    *piSize = needed;
    return true;
}

/// The published flag of one byte is the bool of the modules.
bool* AsBool(bool8_t* flag)
{
    return reinterpret_cast<bool*>(flag);
}

}  // namespace

// ---- Library

GC_ERROR GCInitLib()
{
    {
        const std::lock_guard<std::mutex> random(g_randomMutex);
        srand(static_cast<unsigned>(time(nullptr)));
    }
    const Lock lock(g_libMutex);
    if (g_isLibInit) {
        return Raise(GC_ERR_RESOURCE_IN_USE,
                     "every call to GenTL::GCInitLib() must be matched with a call to GenTL::GCCloseLib() "
                     "before calling GenTL::GCInitLib() again");
    }
    g_isLibInit = true;
    // A sink that throws leaves its pointer null; the exception is the consumer's to see.
    if (g_pGLogger == nullptr) {
        g_pGLogger = new GLogger();
    }
    if (g_pHLogger == nullptr) {
        g_pHLogger = new HLogger();
    }
    {
        const Lock systemLock(g_isSystemOpenMutex);
        g_isSystemOpen = false;
    }
    // What an earlier life of the library left open is forgotten, not closed.
    for (const std::string& id : g_openedDevicesRegistry.AllInterfaceIDs()) {
        g_openedDevicesRegistry.PopInterfaceEntry(id);
    }
    return GC_ERR_SUCCESS;
}

GC_ERROR GCCloseLib()
{
    if (!isLibInitialized()) {
        return Raise(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    for (const std::string& id : g_openedDevicesRegistry.AllInterfaceIDs()) {
        void* hIface = g_openedDevicesRegistry.PeekInterfaceEntry(id).handle;
        if (hIface != nullptr) {
            IFClose(hIface);
        }
        g_openedDevicesRegistry.PopInterfaceEntry(id);
    }
    {
        const Lock lock(g_libMutex);
        g_isLibInit = false;
        delete std::exchange(g_pGLogger, nullptr);
        delete std::exchange(g_pHLogger, nullptr);
        const Lock systemLock(g_isSystemOpenMutex);
        g_isSystemOpen = false;
    }
    ErrorCache::ReleaseErrorCache();
    return GC_ERR_SUCCESS;
}

GC_ERROR GCGetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    if (!isLibInitialized()) {
        return Raise(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    TLInfo values;
    values.name = GetGenTLFileName();
    values.pathname = GetGenTLFilePath();
    bool isUnknown = false;
    const int code = AnswerTLInfo(values, InfoUtility(), iInfoCmd, piType, pBuffer, piSize, isUnknown);
    return code == GC_ERR_SUCCESS || isUnknown ? code : AppendName(code);
}

GC_ERROR GCGetLastError(GC_ERROR* piErrorCode, char* sErrText, size_t* piSize)
{
    if (!isLibInitialized()) {
        return GC_ERR_NOT_INITIALIZED;
    }
    if (piErrorCode == nullptr || piSize == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    ErrorCache* cache = ErrorCache::GetErrorCache();
    const bool hasError = cache->Count() != 0;
    std::string text = "No Error";
    *piErrorCode = GC_ERR_SUCCESS;
    if (hasError) {
        Error e;
        cache->Peak(e);
        *piErrorCode = e.Code();
        text = ErrorStackText(e);
    }
    if (sErrText == nullptr) {
        *piSize = text.size() + 1;
        return GC_ERR_SUCCESS;
    }
    if (!CopyWhenItFits(text, sErrText, piSize)) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    if (hasError) {
        // Read in full, so it is spent.
        Error spent;
        cache->Pop(spent);
    }
    return GC_ERR_SUCCESS;
}

// ---- Ports

GC_ERROR GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize)
{
    return Forward<IBaseModule>(hPort,
                                [&](IBaseModule& port) { return port.ReadPort(iAddress, pBuffer, piSize); });
}

GC_ERROR GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer, size_t* piSize)
{
    return Forward<IBaseModule>(hPort,
                                [&](IBaseModule& port) { return port.WritePort(iAddress, pBuffer, piSize); });
}

GC_ERROR GCGetPortURL(PORT_HANDLE hPort, char* sURL, size_t* piSize)
{
    return Forward<IBaseModule>(hPort, [&](IBaseModule& port) { return port.GetPortURL(sURL, piSize); });
}

GC_ERROR GCGetPortInfo(
    PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return Forward<IBaseModule>(
        hPort, [&](IBaseModule& port) { return port.GetPortInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR GCRegisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID, EVENT_HANDLE* phEvent)
{
    return Forward<IBaseModule>(hEventSrc,
                                [&](IBaseModule& port) { return port.RegisterEvent(iEventID, phEvent); });
}

GC_ERROR GCUnregisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID)
{
    return Forward<IBaseModule>(hEventSrc, [&](IBaseModule& port) { return port.UnregisterEvent(iEventID); });
}

GC_ERROR GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t* piNumURLs)
{
    return Forward<IBaseModule>(hPort, [&](IBaseModule& port) { return port.GetNumPortURLs(piNumURLs); });
}

GC_ERROR GCGetPortURLInfo(PORT_HANDLE hPort,
                          uint32_t iURLIndex,
                          URL_INFO_CMD iInfoCmd,
                          INFO_DATATYPE* piType,
                          void* pBuffer,
                          size_t* piSize)
{
    return Forward<IBaseModule>(hPort, [&](IBaseModule& port) {
        return port.GetPortURLInfo(iURLIndex, iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR GCReadPortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries)
{
    return Forward<IBaseModule>(
        hPort, [&](IBaseModule& port) { return port.ReadPortStacked(pEntries, piNumEntries); });
}

GC_ERROR GCWritePortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries)
{
    return Forward<IBaseModule>(
        hPort, [&](IBaseModule& port) { return port.WritePortStacked(pEntries, piNumEntries); });
}

// ---- System

GC_ERROR TLOpen(TL_HANDLE* phTL)
{
    TraceEnter();
    if (!isLibInitialized()) {
        return Raise(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    if (phTL == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "received phTL=nullptr");
    }
    const Lock lock(g_isSystemOpenMutex);
    if (g_isSystemOpen) {
        return Raise(GC_ERR_RESOURCE_IN_USE,
                     "every call to GenTL::TLOpen() must be matched with a call to GenTL::TLClose() "
                     "before calling GenTL::TLOpen() again");
    }
    auto system = std::make_unique<System>(nullptr);
    if (const int code = AllocateHandle(phTL, static_cast<ISystem*>(system.get())); code != GC_ERR_SUCCESS) {
        return AppendName(code);
    }
    if (const int code = system->Open(); code != GC_ERR_SUCCESS) {
        system.reset();
        if (const int deleted = DeleteHandle(*phTL); deleted != GC_ERR_SUCCESS) {
            AppendName(deleted);
        }
        return AppendName(code);
    }
    g_isSystemOpen = true;
    system.release();  // the handle's from here on; TLClose takes it back
    return GC_ERR_SUCCESS;
}

GC_ERROR TLClose(TL_HANDLE hTL)
{
    if (const int code = CheckLibraryAndHandle(hTL, __func__, __LINE__); code != GC_ERR_SUCCESS) {
        return code;
    }
    auto* system = CastModule<ISystem>(hTL);
    if (system == nullptr) {
        return Raise(GC_ERR_INVALID_HANDLE, kCastFailure<ISystem>);
    }
    {
        const Lock lock(g_isSystemOpenMutex);
        if (!g_isSystemOpen) {
            return Raise(GC_ERR_INVALID_HANDLE,
                         "GenTL::TLOpen() must be called before calling GenTL::TLClose()");
        }
    }
    {
        const Lock lock(g_isSystemOpenMutex);
        g_isSystemOpen = false;
    }
    return CloseAndDelete(
        system, hTL,
        "The system became in unknown state; call GenTL::GCInitLib() to reinitialize the library", __func__,
        __LINE__);
}

GC_ERROR TLGetInfo(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return ForwardAndAppend<ISystem>(
        hTL, [&](ISystem& system) { return system.GetInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR TLGetNumInterfaces(TL_HANDLE hTL, uint32_t* piNumIfaces)
{
    return ForwardAndAppend<ISystem>(hTL,
                                     [&](ISystem& system) { return system.GetNumInterfaces(piNumIfaces); });
}

GC_ERROR TLGetInterfaceID(TL_HANDLE hTL, uint32_t iIndex, char* sID, size_t* piSize)
{
    return ForwardAndAppend<ISystem>(
        hTL, [&](ISystem& system) { return system.GetInterfaceID(iIndex, sID, piSize); });
}

GC_ERROR TLGetInterfaceInfo(TL_HANDLE hTL,
                            const char* sIfaceID,
                            INTERFACE_INFO_CMD iInfoCmd,
                            INFO_DATATYPE* piType,
                            void* pBuffer,
                            size_t* piSize)
{
    return ForwardAndAppend<ISystem>(hTL, [&](ISystem& system) {
        return system.GetInterfaceInfo(sIfaceID, iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR TLOpenInterface(TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface)
{
    return ForwardAndAppend<ISystem>(
        hTL, [&](ISystem& system) { return system.OpenInterface(sIfaceID, hTL, phIface); });
}

GC_ERROR TLUpdateInterfaceList(TL_HANDLE hTL, bool8_t* pbChanged, uint64_t iTimeout)
{
    return ForwardAndAppend<ISystem>(
        hTL, [&](ISystem& system) { return system.UpdateInterfaceList(AsBool(pbChanged), iTimeout); });
}

// ---- Interface

GC_ERROR IFClose(IF_HANDLE hIface)
{
    if (const int code = CheckLibraryAndHandle(hIface, __func__, __LINE__); code != GC_ERR_SUCCESS) {
        return code;
    }
    auto* iface = CastModule<IInterface>(hIface);
    if (iface == nullptr) {
        return Raise(GC_ERR_INVALID_HANDLE, kCastFailure<IInterface>);
    }
    return CloseAndDelete(
        iface, hIface,
        "The interface became in unknown state; call GenTL::TLOpenInterface() to reinitialize the interface",
        __func__, __LINE__);
}

GC_ERROR IFGetInfo(
    IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return ForwardAndAppend<IInterface>(
        hIface, [&](IInterface& iface) { return iface.GetInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR IFGetNumDevices(IF_HANDLE hIface, uint32_t* piNumDevices)
{
    return ForwardAndAppend<IInterface>(hIface,
                                        [&](IInterface& iface) { return iface.GetNumDevices(piNumDevices); });
}

GC_ERROR IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char* sIDeviceID, size_t* piSize)
{
    return ForwardAndAppend<IInterface>(
        hIface, [&](IInterface& iface) { return iface.GetDeviceID(iIndex, sIDeviceID, piSize); });
}

GC_ERROR IFUpdateDeviceList(IF_HANDLE hIface, bool8_t* pbChanged, uint64_t iTimeout)
{
    return ForwardAndAppend<IInterface>(
        hIface, [&](IInterface& iface) { return iface.UpdateDeviceList(AsBool(pbChanged), iTimeout); });
}

GC_ERROR IFGetDeviceInfo(IF_HANDLE hIface,
                         const char* sDeviceID,
                         DEVICE_INFO_CMD iInfoCmd,
                         INFO_DATATYPE* piType,
                         void* pBuffer,
                         size_t* piSize)
{
    return ForwardAndAppend<IInterface>(hIface, [&](IInterface& iface) {
        return iface.GetDeviceInfo(sDeviceID, iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR IFOpenDevice(IF_HANDLE hIface,
                      const char* sDeviceID,
                      DEVICE_ACCESS_FLAGS iOpenFlags,
                      DEV_HANDLE* phDevice)
{
    return ForwardAndAppend<IInterface>(
        hIface, [&](IInterface& iface) { return iface.OpenDevice(sDeviceID, iOpenFlags, phDevice, hIface); });
}

GC_ERROR IFGetParentTL(IF_HANDLE hIface, TL_HANDLE* phSystem)
{
    return ForwardAndAppend<IInterface>(hIface,
                                        [&](IInterface& iface) { return iface.GetParentTL(phSystem); });
}

int IFForceIp(void* hIface, unsigned long mac, unsigned int ip, unsigned int subnet, unsigned int gateway)
{
    return ForwardAndAppend<IInterface>(
        hIface, [&](IInterface& iface) { return iface.ForceIp(mac, ip, subnet, gateway); });
}

// ---- Device

GC_ERROR DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice)
{
    return Forward<IDevice>(hDevice, [&](IDevice& device) { return device.GetPort(phRemoteDevice); });
}

GC_ERROR DevGetNumDataStreams(DEV_HANDLE hDevice, uint32_t* piNumDataStreams)
{
    return Forward<IDevice>(hDevice,
                            [&](IDevice& device) { return device.GetNumDataStreams(piNumDataStreams); });
}

GC_ERROR DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID, size_t* piSize)
{
    return Forward<IDevice>(
        hDevice, [&](IDevice& device) { return device.GetDataStreamID(iIndex, sDataStreamID, piSize); });
}

GC_ERROR DevOpenDataStream(DEV_HANDLE hDevice, const char* sDataStreamID, DS_HANDLE* phDataStream)
{
    return Forward<IDevice>(
        hDevice, [&](IDevice& device) { return device.OpenDataStream(sDataStreamID, phDataStream); });
}

GC_ERROR DevGetInfo(
    DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return Forward<IDevice>(
        hDevice, [&](IDevice& device) { return device.GetInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR DevClose(DEV_HANDLE hDevice)
{
    return Forward<IDevice>(hDevice, [&](IDevice& device) {
        // A device that failed to close may still have a thread on it: it stays allocated.
        if (device.Close() == GC_ERR_SUCCESS) {
            delete &device;
        }
        return DeleteHandle(hDevice);
    });
}

GC_ERROR DevGetParentIF(DEV_HANDLE hDevice, IF_HANDLE* phIface)
{
    return Forward<IDevice>(hDevice, [&](IDevice& device) { return device.GetParentIF(phIface); });
}

GC_ERROR DevSendActionCommand(
    DEV_HANDLE hDevice, uint32_t iDeviceKey, uint32_t iGroupKey, uint32_t iGroupMask, uint64_t iActionTime)
{
    return Forward<IDevice>(hDevice, [&](IDevice& device) {
        return device.SendActionCommand(iDeviceKey, iGroupKey, iGroupMask, iActionTime);
    });
}

// ---- Data stream

GC_ERROR DSAnnounceBuffer(
    DS_HANDLE hDataStream, void* pBuffer, size_t iSize, void* pPrivate, BUFFER_HANDLE* phBuffer)
{
    return Forward<IDataStream>(hDataStream, [&](IDataStream& stream) {
        return stream.AnnounceBuffer(pBuffer, iSize, pPrivate, phBuffer);
    });
}

GC_ERROR DSAllocAndAnnounceBuffer(DS_HANDLE hDataStream,
                                  size_t iSize,
                                  void* pPrivate,
                                  BUFFER_HANDLE* phBuffer)
{
    return Forward<IDataStream>(hDataStream, [&](IDataStream& stream) {
        return stream.AllocAndAnnounceBuffer(iSize, pPrivate, phBuffer);
    });
}

GC_ERROR DSFlushQueue(DS_HANDLE hDataStream, ACQ_QUEUE_TYPE iOperation)
{
    return Forward<IDataStream>(hDataStream,
                                [&](IDataStream& stream) { return stream.FlushQueue(iOperation); });
}

GC_ERROR DSStartAcquisition(DS_HANDLE hDataStream, ACQ_START_FLAGS iStartFlags, uint64_t iNumToAcquire)
{
    return Forward<IDataStream>(hDataStream, [&](IDataStream& stream) {
        return stream.StartAcquisition(iStartFlags, iNumToAcquire);
    });
}

GC_ERROR DSStopAcquisition(DS_HANDLE hDataStream, ACQ_STOP_FLAGS iStopFlags)
{
    return Forward<IDataStream>(hDataStream,
                                [&](IDataStream& stream) { return stream.StopAcquisition(iStopFlags); });
}

GC_ERROR DSGetInfo(
    DS_HANDLE hDataStream, STREAM_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return Forward<IDataStream>(
        hDataStream, [&](IDataStream& stream) { return stream.GetInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR DSGetBufferID(DS_HANDLE hDataStream, uint32_t iIndex, BUFFER_HANDLE* phBuffer)
{
    return Forward<IDataStream>(hDataStream,
                                [&](IDataStream& stream) { return stream.GetBufferID(iIndex, phBuffer); });
}

GC_ERROR DSClose(DS_HANDLE hDataStream)
{
    return Forward<IDataStream>(hDataStream, [&](IDataStream& stream) {
        stream.Close();  // the device owns the stream and closes what stays open
        return DeleteHandle(hDataStream);
    });
}

GC_ERROR DSRevokeBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, void** pBuffer, void** pPrivate)
{
    return Forward<IDataStream>(
        hDataStream, [&](IDataStream& stream) { return stream.RevokeBuffer(hBuffer, pBuffer, pPrivate); });
}

GC_ERROR DSQueueBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer)
{
    return ForwardWithBuffer(hDataStream, hBuffer,
                             [&](IDataStream& stream) { return stream.QueueBuffer(hBuffer); });
}

GC_ERROR DSGetBufferInfo(DS_HANDLE hDataStream,
                         BUFFER_HANDLE hBuffer,
                         BUFFER_INFO_CMD iInfoCmd,
                         INFO_DATATYPE* piType,
                         void* pBuffer,
                         size_t* piSize)
{
    return ForwardWithBuffer(hDataStream, hBuffer, [&](IDataStream& stream) {
        return stream.GetBufferInfo(hBuffer, iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR DSGetParentDev(DS_HANDLE hDataStream, DEV_HANDLE* phDevice)
{
    return Forward<IDataStream>(hDataStream,
                                [&](IDataStream& stream) { return stream.GetParentDev(phDevice); });
}

// Chunk and part data are the consumer's to parse: no check of anything goes before the refusal.
GC_ERROR DSGetBufferChunkData(DS_HANDLE, BUFFER_HANDLE, SINGLE_CHUNK_DATA*, size_t*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

GC_ERROR DSGetNumBufferParts(DS_HANDLE, BUFFER_HANDLE, uint32_t*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

GC_ERROR DSGetBufferPartInfo(
    DS_HANDLE, BUFFER_HANDLE, uint32_t, BUFFER_PART_INFO_CMD, INFO_DATATYPE*, void*, size_t*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int DSWaitForNextLeader(void* hDataStream, unsigned long iTimeout)
{
    return Forward<IDataStream>(hDataStream,
                                [&](IDataStream& stream) { return stream.WaitForNextLeader(iTimeout); });
}

int DSResetWaitForNextLeader(void* hDataStream)
{
    return Forward<IDataStream>(hDataStream,
                                [&](IDataStream& stream) { return stream.ResetWaitForNextLeader(); });
}

int DSSetupResendRetryParams(
    void* hDataStream, unsigned long retries, double rate, char const* first, char const* second)
{
    TraceEnter();
    if (!isLibInitialized()) {
        return Raise(GC_ERR_NOT_INITIALIZED, kNotInitialized);
    }
    // Unlike in the other functions the text of the handle check is not kept.
    if (const int code = CheckHandle(hDataStream); code != GC_ERR_SUCCESS) {
        return Store(code);
    }
    auto* stream = CastModule<IDataStream>(hDataStream);
    return stream != nullptr ? stream->SetupResendRetryParams(retries, rate, first, second)
                             : Store(GC_ERR_INVALID_HANDLE);
}

// ---- Event

GC_ERROR EventGetData(EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize, uint64_t iTimeout)
{
    return Forward<IEvent>(hEvent, [&](IEvent& event) { return event.GetData(pBuffer, piSize, iTimeout); });
}

GC_ERROR EventGetDataInfo(EVENT_HANDLE hEvent,
                          const void* pInBuffer,
                          size_t iInSize,
                          EVENT_DATA_INFO_CMD iInfoCmd,
                          INFO_DATATYPE* piType,
                          void* pOutBuffer,
                          size_t* piOutSize)
{
    return Forward<IEvent>(hEvent, [&](IEvent& event) {
        return event.GetDataInfo(pInBuffer, iInSize, iInfoCmd, piType, pOutBuffer, piOutSize);
    });
}

GC_ERROR EventGetInfo(
    EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return Forward<IEvent>(hEvent,
                           [&](IEvent& event) { return event.GetInfo(iInfoCmd, piType, pBuffer, piSize); });
}

GC_ERROR EventFlush(EVENT_HANDLE hEvent)
{
    return Forward<IEvent>(hEvent, [&](IEvent& event) { return event.Flush(); });
}

GC_ERROR EventKill(EVENT_HANDLE hEvent)
{
    return Forward<IEvent>(hEvent, [&](IEvent& event) { return event.Kill(); });
}

}  // namespace GenTL
