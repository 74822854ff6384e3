#include "stream/StreamReg.h"

#include <iterator>

namespace GenTL {
namespace {

using R = StreamReg;

// clang-format off
constexpr RegisterRow<StreamReg> kRegisters[] = {
    {0x0100, "StreamID",                                 kTextLength,   &R::GetStreamID,                                 nullptr},
    {0x0200, "StreamType_Reg",                           kNumberLength, &R::GetStreamType_Reg,                           nullptr},
    {0x0300, "StreamAnnouncedBufferCount_Reg",           kNumberLength, &R::GetStreamAnnouncedBufferCount_Reg,           nullptr},
    {0x0400, "StreamBufferHandlingMode_Reg",             kNumberLength, &R::GetStreamBufferHandlingMode_Reg,             &R::SetStreamBufferHandlingMode_Reg},
    {0x0500, "StreamAnnounceBufferMinimum_Reg",          kNumberLength, &R::GetStreamAnnounceBufferMinimum_Reg,          nullptr},
    {0x0600, "StreamDeliveredFrameCount_Reg",            kNumberLength, &R::GetStreamDeliveredFrameCount_Reg,            nullptr},
    {0x0700, "StreamLostFrameCount_Reg",                 kNumberLength, &R::GetStreamLostFrameCount_Reg,                 nullptr},
    {0x0800, "StreamInputBufferCount_Reg",               kNumberLength, &R::GetStreamInputBufferCount_Reg,               nullptr},
    {0x0900, "StreamOutputBufferCount_Reg",              kNumberLength, &R::GetStreamOutputBufferCount_Reg,              nullptr},
    {0x1000, "StreamStartedFrameCount_Reg",              kNumberLength, &R::GetStreamStartedFrameCount_Reg,              nullptr},
    {0x1100, "PayloadSize_Reg",                          kNumberLength, &R::GetPayloadSize_Reg,                          nullptr},
    {0x1200, "StreamIsGrabbing_Reg",                     kNumberLength, &R::GetStreamIsGrabbing_Reg,                     nullptr},
    {0x1300, "StreamChunkCountMaximum_Reg",              kNumberLength, &R::GetStreamChunkCountMaximum_Reg,              nullptr},
    {0x1400, "StreamBufferAlignment_Reg",                kNumberLength, &R::GetStreamBufferAlignment_Reg,                nullptr},
    {0x1500, "StreamMissedImageCount_Reg",               kNumberLength, &R::GetStreamMissedImageCount_Reg,               nullptr},
    {0x1600, "StreamMissedPacketCount_Reg",              kNumberLength, &R::GetStreamMissedPacketCount_Reg,              nullptr},
    {0x1700, "StreamCumulativeMissedImageCount_Reg",     kNumberLength, &R::GetStreamCumulativeMissedImageCount_Reg,     nullptr},
    {0x1800, "StreamCumulativeIncompleteImageCount_Reg", kNumberLength, &R::GetStreamCumulativeIncompleteImageCount_Reg, nullptr},
    {0x1900, "StreamPacketResendEnable_Reg",             kNumberLength, &R::GetStreamPacketResendEnable_Reg,             &R::SetStreamPacketResendEnable_Reg},
    {0x2100, "StreamAutoNegotiatePacketSize_Reg",        kNumberLength, &R::GetStreamAutoNegotiatePacketSize_Reg,        &R::SetStreamAutoNegotiatePacketSize_Reg},
    {0x2300, "StreamMaxNumResendRequestsPerImage_Reg",   kNumberLength, &R::GetStreamMaxNumResendRequestsPerImage_Reg,   &R::SetStreamMaxNumResendRequestsPerImage_Reg},
    {0x2400, "StreamMulticastEnable_Reg",                kNumberLength, &R::GetStreamMulticastEnable_Reg,                &R::SetStreamMulticastEnable_Reg},
    // No register of the description, but the description itself: its length is in the port's URL.
    {0xF0F00000, "LocalTLXML_Reg",                       0,             &R::GetLocalTLXML_Reg,                           nullptr},
};
// clang-format on

}  // namespace

int StreamReg::DispatchRead(unsigned long address, void* pBuffer, unsigned long* piSize)
{
    return ReadRegister(*this, kRegisters, address, pBuffer, piSize);
}

int StreamReg::DispatchWrite(unsigned long address, const void* pBuffer, unsigned long* piSize)
{
    return WriteRegister(*this, kRegisters, address, pBuffer, piSize, GC_ERR_ACCESS_DENIED);
}

const RegisterRow<StreamReg>* StreamReg::Registers(std::size_t& count)
{
    count = std::size(kRegisters);
    return kRegisters;
}

}  // namespace GenTL
