/// The log channel that the hosting program may offer.
#pragma once

#include <cstdint>

/// What a channel asks before it passes a record on.
class IFilterOutFn
{
public:
    /// True when the record may pass.
    virtual bool OnFilterOut(const char* record) = 0;
    virtual ~IFilterOutFn() = default;
};

/// One channel, made by NorvoLog::Init and given back to NorvoLog::Deinit. The slot order is binding: the
/// object may come from another binary, and it is never deleted through this interface.
class INorvoLog
{
public:
    virtual void SetOutPort(std::uint16_t port) = 0;
    virtual void ClearOutPort(std::uint16_t port) = 0;
    virtual void AddInPort(std::uint16_t port) = 0;
    virtual void Send(const char* text) = 0;
    virtual void SetFilter(IFilterOutFn* filter) = 0;

protected:
    ~INorvoLog() = default;
};
