#include "gentl/ImageSaver.h"

#include <algorithm>
#include <utility>

namespace Tool {
namespace {

constexpr unsigned kMostThreads = 4;

}  // namespace

ImageSaver::ImageSaver(Write write, Done done) : m_write(std::move(write)), m_done(std::move(done))
{
    // One core is left for the reception.
    const unsigned count = std::clamp(std::thread::hardware_concurrency(), 2u, kMostThreads + 1) - 1;
    for (unsigned i = 0; i < count; ++i) {
        m_threads.emplace_back(&ImageSaver::Run, this);
    }
}

ImageSaver::~ImageSaver()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

void ImageSaver::Save(const Image& image, std::uint64_t number, void* hBuffer)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ThrowFailureLocked();
        m_jobs.push_back({image, number, hBuffer});
    }
    m_changed.notify_all();
}

void ImageSaver::Finish()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_jobs.empty() && m_busy == 0; });
    ThrowFailureLocked();
}

void ImageSaver::Run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_isEnding || !m_jobs.empty(); });
        if (m_isEnding) {
            return;
        }
        const Job job = m_jobs.front();
        m_jobs.pop_front();
        ++m_busy;
        lock.unlock();
        std::exception_ptr failure;
        try {
            Carry(job);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        --m_busy;
        if (m_failure == nullptr) {
            m_failure = failure;
        }
        m_changed.notify_all();
    }
}

void ImageSaver::Carry(const Job& job)
{
    try {
        m_write(job.image, job.number);
    } catch (...) {
        m_done(job.hBuffer);
        throw;
    }
    m_done(job.hBuffer);
}

void ImageSaver::ThrowFailureLocked()
{
    if (m_failure != nullptr) {
        std::rethrow_exception(m_failure);
    }
}

}  // namespace Tool
