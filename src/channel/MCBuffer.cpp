#include "channel/MCBuffer.h"

#include "frame/Error.h"
#include "frame/PortableUtil.h"

namespace GenTL {

MCBuffer& MCBuffer::operator=(const MCBuffer& other)
{
    if (this == &other) {
        return *this;
    }
    char* copy = new char[other.m_size];
    if (other.m_pData != nullptr) {
        memcpy_portable(copy, other.m_size, other.m_pData, other.m_size);
    }
    m_pData = copy;
    m_size = other.m_size;
    m_pUserPointer = other.m_pUserPointer;
    m_timestamp = other.m_timestamp;
    m_sizeFilled = other.m_sizeFilled;
    return *this;
}

int MCBuffer::ReadPort(unsigned long, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int MCBuffer::WritePort(unsigned long, const void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int MCBuffer::GetPortURL(char*, unsigned long*) const
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int MCBuffer::GetPortInfo(int, int*, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int MCBuffer::RegisterEvent(int, void**)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int MCBuffer::UnregisterEvent(int)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

int MCBuffer::GetNumPortURLs(unsigned int* piNumURLs)
{
    if (piNumURLs == nullptr) {
        return Raise(GC_ERR_INVALID_PARAMETER, "piNumURLs==nullptr");
    }
    *piNumURLs = 0;
    return GC_ERR_SUCCESS;
}

int MCBuffer::GetPortURLInfo(unsigned int, int, int*, void*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int MCBuffer::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}
int MCBuffer::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY*, unsigned long*)
{
    return StoreName(GC_ERR_NOT_IMPLEMENTED);
}

}  // namespace GenTL
