/// The functions of a producer that the tool calls, resolved at run time.
#pragma once

#include "frame/GenTL.h"

namespace Tool {

// Only what every producer of the published interface offers; a foreign one must not fail for want of an
// addition.
// clang-format off
#define TOOL_GENTL_FUNCTIONS(F)                                                                          \
    F(GCInitLib) F(GCCloseLib) F(GCGetLastError)                                                         \
    F(GCReadPort) F(GCWritePort) F(GCGetPortURL) F(GCGetNumPortURLs) F(GCGetPortURLInfo)                 \
    F(GCRegisterEvent) F(GCUnregisterEvent) F(EventGetData) F(EventGetInfo)                              \
    F(TLOpen) F(TLClose) F(TLUpdateInterfaceList) F(TLGetNumInterfaces) F(TLGetInterfaceID)              \
    F(TLOpenInterface)                                                                                   \
    F(IFClose) F(IFGetInfo) F(IFUpdateDeviceList) F(IFGetNumDevices) F(IFGetDeviceID)                    \
    F(IFGetDeviceInfo) F(IFOpenDevice)                                                                   \
    F(DevClose) F(DevGetInfo) F(DevGetPort) F(DevGetNumDataStreams) F(DevGetDataStreamID)                \
    F(DevOpenDataStream)                                                                                 \
    F(DSClose) F(DSGetInfo) F(DSAllocAndAnnounceBuffer) F(DSRevokeBuffer) F(DSQueueBuffer)               \
    F(DSFlushQueue) F(DSStartAcquisition) F(DSStopAcquisition) F(DSGetBufferInfo)
// clang-format on

/// One pointer per function, of the published P type.
struct GenTLApi
{
#define TOOL_MEMBER(name) GenTL::P##name name = nullptr;
    TOOL_GENTL_FUNCTIONS(TOOL_MEMBER)
#undef TOOL_MEMBER
};

}  // namespace Tool
