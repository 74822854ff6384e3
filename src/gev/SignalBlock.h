/// Keeps the host program's signals off the library's threads.
#pragma once

#include <signal.h>

namespace GenTL {

/// Blocks all signals on the calling thread for its life. A thread inherits the mask of its maker: made under
/// this, it is never interrupted in a read, and never runs the host's signal handlers.
class SignalBlock
{
public:
    SignalBlock()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_previous);
    }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;
    ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &m_previous, nullptr); }

private:
    sigset_t m_previous;
};

}  // namespace GenTL
