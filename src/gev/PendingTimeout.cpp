#include "gev/PendingTimeout.h"

#include "gev/CommSocket.h"
#include "gev/GvcpCommand.h"
#include "log/HLogger.h"

namespace GenTL {

void PendingTimeout::Apply(const unsigned char* datagram)
{
    const int time = Load16(datagram + GvcpAck::kPendingTime);
    if (GvcpAck::Header(datagram).m_acknowledge != Gvcp::kPendingAck || time == 0) {
        return;
    }
    int previous = 0;
    if (const int code = m_socket.SetTimeout(time, previous); code != 0) {
        HLogger::Error("GenTL::HALGev::ReadReg Could't set Ackk pending Timout", code);
    } else if (m_saved == 0) {
        m_saved = previous;
    }
}

void PendingTimeout::Restore()
{
    if (m_saved == 0) {
        return;
    }
    int previous = 0;
    if (const int code = m_socket.SetTimeout(m_saved, previous); code != 0) {
        HLogger::Error("GenTL::HALGev::ResetTimout Could't reset Timout", code);
    }
}

}  // namespace GenTL
