/// Writes images beside the reception, so that a slow disk doesn't hold up the stream.
#pragma once

#include "gentl/Image.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace Tool {

/// Owns the threads that write. Threads: one enters Save and Finish; write and done run on the writing
/// threads. Lock: m_mutex alone, not held while writing.
class ImageSaver
{
public:
    /// Both may throw Failure.
    using Write = std::function<void(const Image& image, std::uint64_t number)>;
    using Done = std::function<void(void* hBuffer)>;

    /// write puts an image into a file; done is then called with the image's buffer, also when writing
    /// failed.
    ImageSaver(Write write, Done done);
    /// Ends the threads; images not yet begun are dropped.
    ~ImageSaver();
    ImageSaver(const ImageSaver&) = delete;
    ImageSaver& operator=(const ImageSaver&) = delete;

    /// Takes the image over until done is called with its buffer. Throws the first failure of an earlier one.
    void Save(const Image& image, std::uint64_t number, void* hBuffer);
    /// Waits until everything is written. Throws the first failure.
    void Finish();

private:
    struct Job
    {
        Image image;
        std::uint64_t number;
        void* hBuffer;
    };

    void Run();
    void Carry(const Job& job);
    void ThrowFailureLocked();

    const Write m_write;
    const Done m_done;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;
    unsigned m_busy = 0;
    bool m_isEnding = false;
    std::exception_ptr m_failure;
    std::vector<std::thread> m_threads;
};

}  // namespace Tool
