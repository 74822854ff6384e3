#include "gentl/Interrupt.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstdlib>
#include <thread>

namespace Tool::Interrupt {
namespace {

std::atomic<bool> g_requested{false};

void Watch(sigset_t signals)
{
    int signal = 0;
    ::sigwait(&signals, &signal);
    g_requested = true;
    ::sigwait(&signals, &signal);
    std::_Exit(128 + signal);
}

}  // namespace

void Catch()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    // Blocked here, thus in every thread that starts later: no call inside the producer ends early by a
    // signal.
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread(Watch, signals).detach();
}

bool Requested()
{
    return g_requested;
}

}  // namespace Tool::Interrupt
