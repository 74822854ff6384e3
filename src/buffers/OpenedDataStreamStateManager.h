/// Which moves of a buffer between a stream's collections are legal, and the making of them.
#pragma once

#include "buffers/BufferStateSetter.h"

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <cstdint>
#include <deque>
#include <vector>

namespace GenTL {

class Buffer;
struct BufferMove;
struct GenTLHandle;

/// Takes a buffer from one place, writes the fields of the new place and its m_state, puts the buffer there
/// and wakes one thread that waits for it.
///
/// Owns: nothing; refers to the collections, locks, conditions and counter of a stream, which outlives it.
/// Threads: the consumer's and the grab thread. Locks: no queue lock and not that of the announced buffers;
/// the caller holds those that it needs. A single move takes no lock at all. A bulk move takes each buffer's
/// m_mutex around that buffer. The stream's own operations take a buffer's mutex before the queues', so a
/// bulk move under the queue locks needs a stream on which nothing else runs.
///
/// Handles are those of buffers that the stream announced. Every refusal is GC_ERR_INVALID_BUFFER and leaves
/// the buffer and the collections as they are; the other operations answer 0 or the first failure.
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
                                 std::uint64_t& numInDriver);
    OpenedDataStreamStateManager(const OpenedDataStreamStateManager&) = delete;
    OpenedDataStreamStateManager& operator=(const OpenedDataStreamStateManager&) = delete;
    virtual ~OpenedDataStreamStateManager() = default;

    // Single moves have the state that the buffer comes from tested when checkState is true. A buffer that
    // comes from a queue must always be its front.
    virtual int MoveBufferFrom_ANNOUNCED_to_INPUT(GenTLHandle* hBuffer, bool checkState);
    virtual int MoveBufferFrom_DISCARD_to_INPUT(GenTLHandle* hBuffer, bool checkState);
    virtual int MoveBufferFrom_OUTPUT_to_INPUT(GenTLHandle* hBuffer, bool checkState);
    virtual int MoveAllBuffersFrom_OUTPUT_to_INPUT();
    virtual int MoveBufferFrom_USER_to_INPUT(GenTLHandle* hBuffer, bool checkState);
    virtual int MoveBufferFrom_ACQUIRING_to_INPUT(GenTLHandle* hBuffer, bool checkState);
    /// Brings back the discarded buffers only. A refusal ends the walk over the announced buffers; what was
    /// walked so far stays moved.
    virtual int MoveAllUnqueuedBuffers_to_INPUT();
    /// Leaves the consumer's buffers with the consumer. Walks as MoveAllUnqueuedBuffers_to_INPUT; since an
    /// output buffer must be the front of its queue, an output order other than that of the announcements
    /// ends the walk.
    virtual int MoveAllBuffers_to_INPUT();
    virtual int MoveBufferFrom_INPUT_to_OUTPUT(GenTLHandle* hBuffer, bool checkState);
    virtual int MoveAllBuffersFrom_INPUT_to_OUTPUT();
    virtual int MoveBufferFrom_INPUT_to_DISCARD(GenTLHandle* hBuffer, bool checkState);

    int MoveBufferFrom_OUTPUT_to_DISCARD(GenTLHandle* hBuffer, bool checkState);
    int MoveBufferFrom_ACQUIRING_to_DISCARD(GenTLHandle* hBuffer, bool checkState);
    int MoveBufferFrom_OUTPUT_to_USER(GenTLHandle* hBuffer, bool checkState);
    int MoveBufferFrom_INPUT_TO_ACQURING(GenTLHandle* hBuffer, bool checkState);
    int MoveBufferFrom_OUTPUT_TO_ACQURING(GenTLHandle* hBuffer, bool checkState);
    int MoveBufferFrom_ACQUIRING_to_OUTPUT(GenTLHandle* hBuffer, bool checkState);
    /// Adds the handle to the announced buffers once more; revoking the buffer takes out every entry.
    int MoveBufferFrom_USER_to_DISCARD(GenTLHandle* hBuffer, bool checkState);
    int MoveBufferFrom_USER_to_ANNOUNCED(GenTLHandle* hBuffer, bool checkState);
    int MoveAllBuffersFrom_OUTPUT_to_DISCARD();
    /// Takes the consumer's buffers and those that are being filled too. On a buffer in the driver it ends
    /// with the queues as they are, though the buffers before that one are discarded already.
    int MoveAllBuffers_to_DISCARD();

protected:
    static Buffer& BufferOf(GenTLHandle* hBuffer);
    void PushToInput(GenTLHandle* hBuffer);
    void PushToOutput(GenTLHandle* hBuffer);
    /// Moves the discarded buffers to the input queue. Errors carry the caller's name.
    int MoveAllDiscarded(bool checkState,
                         const char* function = __builtin_FUNCTION(),
                         int line = __builtin_LINE());

    std::vector<GenTLHandle*>& m_announcedBuffers;
    boost::recursive_mutex& m_announcedMutex;
    std::deque<GenTLHandle*>& m_inputBuffers;
    boost::mutex& m_inputMutex;
    boost::condition_variable& m_inputCondition;
    std::deque<GenTLHandle*>& m_outputBuffers;
    boost::mutex& m_outputMutex;
    boost::condition_variable& m_outputCondition;
    std::uint64_t& m_numInDriver;
    BufferStateSetter m_stateSetter;

private:
    int MoveBuffer(const BufferMove& move,
                   GenTLHandle* hBuffer,
                   bool checkState,
                   const char* function = __builtin_FUNCTION(),
                   int line = __builtin_LINE());
};

}  // namespace GenTL
