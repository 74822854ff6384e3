/// Which moves of a buffer between a stream's collections are legal.
#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <cstdint>
#include <deque>
#include <vector>

namespace GenTL {

struct GenTLHandle;

/// Owns: nothing; refers to the collections, locks and conditions of a stream. Threads: those of the stream.
/// Locks: none; the caller holds those of the queues.
class OpenedDataStreamStateManager
{
public:
    OpenedDataStreamStateManager(std::vector<GenTLHandle*>& announcedBuffers,
                                 boost::recursive_mutex& announcedMutex,
                                 std::deque<GenTLHandle*>& inputBuffers,
                                 boost::mutex& inputMutex,
                                 boost::condition_variable& inputCondition,
                                 std::deque<GenTLHandle*>& outputBuffers,
                                 boost::mutex& outputMutex,
                                 boost::condition_variable& outputCondition,
                                 std::uint64_t& numInDriver)
        : m_announcedBuffers(announcedBuffers),
          m_announcedMutex(announcedMutex),
          m_inputBuffers(inputBuffers),
          m_inputMutex(inputMutex),
          m_inputCondition(inputCondition),
          m_outputBuffers(outputBuffers),
          m_outputMutex(outputMutex),
          m_outputCondition(outputCondition),
          m_numInDriver(numInDriver)
    {
    }
    OpenedDataStreamStateManager(const OpenedDataStreamStateManager&) = delete;
    OpenedDataStreamStateManager& operator=(const OpenedDataStreamStateManager&) = delete;
    virtual ~OpenedDataStreamStateManager() = default;

protected:
    std::vector<GenTLHandle*>& m_announcedBuffers;
    boost::recursive_mutex& m_announcedMutex;
    std::deque<GenTLHandle*>& m_inputBuffers;
    boost::mutex& m_inputMutex;
    boost::condition_variable& m_inputCondition;
    std::deque<GenTLHandle*>& m_outputBuffers;
    boost::mutex& m_outputMutex;
    boost::condition_variable& m_outputCondition;
    std::uint64_t& m_numInDriver;
};

}  // namespace GenTL
