#include "buffers/OpenedDataStreamStateManager.h"

#include "buffers/Buffer.h"
#include "buffers/BufferFieldSets.h"
#include "frame/Error.h"
#include "frame/GenTLHandle.h"

#include <boost/thread/lock_guard.hpp>

namespace GenTL {
namespace {

using BufferLock = boost::lock_guard<boost::recursive_mutex>;

/// The words about a queue whose front a move takes.
struct SourceQueue
{
    const char* empty;
    const char* notFront;
};

enum class Target {
    None,
    Input,
    Output,
    Announced,
};

}  // namespace

struct BufferMove
{
    BufferState from;
    const char* otherState;  // the words when the buffer is not in that state
    const SourceQueue* source;
    void (*set)(Buffer&);
    Target target;
};

namespace {

constexpr SourceQueue kInput{"the input queue is empty",
                             "the buffer to move is not in the front of the input queue"};
constexpr SourceQueue kOutput{"the output queue is empty",
                              "the buffer to move is not in the front of the output queue"};

// Consumers know the words, misspelt ones too.
// clang-format off
constexpr BufferMove kDiscardToInput{
    IN_DISCARDED, "buffer is not in the announced buffers queue", nullptr,  SetToInput,     Target::Input};
constexpr BufferMove kUserToInput{
    IN_USER,      "buffer is not in coming from the user",        nullptr,  SetToInput,     Target::Input};
constexpr BufferMove kAcquiringToInput{
    IN_ACQUIRING, "buffer is not in the acquring state",          nullptr,  SetToInput,     Target::Input};
constexpr BufferMove kOutputToInput{
    IN_OUTPUT,    "buffer is not in the output buffers queue",    &kOutput, SetToInput,     Target::Input};
constexpr BufferMove kInputToOutput{
    IN_INPUT,     "buffer is not in the input buffers queue",     &kInput,  SetToOutput,    Target::Output};
constexpr BufferMove kAcquiringToOutput{
    IN_ACQUIRING, "buffer is not in the acquring state",          nullptr,  SetToOutput,    Target::Output};
constexpr BufferMove kInputToDiscard{
    IN_INPUT,     "buffer is not in the input buffers queue",     &kInput,  SetToDiscard,   Target::None};
constexpr BufferMove kOutputToDiscard{
    IN_OUTPUT,    "buffer is not in the output buffers queue",    &kOutput, SetToDiscard,   Target::None};
constexpr BufferMove kAcquiringToDiscard{
    IN_ACQUIRING, "buffer is not in the acquiring state",         nullptr,  SetToDiscard,   Target::None};
constexpr BufferMove kUserToDiscard{
    IN_USER,      "buffer is not in coming from the user",        nullptr,  SetToDiscard,   Target::Announced};
constexpr BufferMove kOutputToUser{
    IN_OUTPUT,    "buffer is not in the output buffers queue",    &kOutput, SetToUser,      Target::None};
constexpr BufferMove kInputToAcquiring{
    IN_INPUT,     "buffer is not in the input buffers queue",     &kInput,  SetToAcquiring, Target::None};
constexpr BufferMove kOutputToAcquiring{
    IN_OUTPUT,    "buffer is not in the output buffers queue",    &kOutput, SetToAcquiring, Target::None};
// clang-format on

}  // namespace

OpenedDataStreamStateManager::OpenedDataStreamStateManager(std::vector<GenTLHandle*>& announcedBuffers,
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

int OpenedDataStreamStateManager::MoveBufferFrom_ANNOUNCED_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBufferFrom_DISCARD_to_INPUT(hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_DISCARD_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kDiscardToInput, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_OUTPUT_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kOutputToInput, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveAllBuffersFrom_OUTPUT_to_INPUT()
{
    while (!m_outputBuffers.empty()) {
        GenTLHandle* hBuffer = m_outputBuffers.front();
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        SetToInput(buffer);
        m_outputBuffers.pop_front();
        PushToInput(hBuffer);
    }
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamStateManager::MoveBufferFrom_USER_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kUserToInput, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_ACQUIRING_to_INPUT(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kAcquiringToInput, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveAllUnqueuedBuffers_to_INPUT()
{
    return MoveAllDiscarded(false);
}

int OpenedDataStreamStateManager::MoveAllBuffers_to_INPUT()
{
    for (GenTLHandle* hBuffer : m_announcedBuffers) {
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        int code = GC_ERR_SUCCESS;
        switch (buffer.m_state) {
            case IN_INPUT:
            case IN_USER:
                break;
            case IN_DISCARDED:
                code = MoveBufferFrom_DISCARD_to_INPUT(hBuffer, false);
                break;
            case IN_OUTPUT:
                code = MoveBufferFrom_OUTPUT_to_INPUT(hBuffer, false);
                break;
            case IN_DRIVER:
                return Raise(GC_ERR_INVALID_BUFFER,
                             "can not move driver buffer to input; a buffer is never in driver state unless "
                             "in GEV state manager");
            case IN_ACQUIRING:
                return Raise(GC_ERR_INVALID_BUFFER, "can not move currently being filled buffer to input");
            case UNKNOWN:
                return Raise(GC_ERR_INVALID_BUFFER, "can not move Unknown state buffer to input");
        }
        if (code != GC_ERR_SUCCESS) {
            return AppendName(code);
        }
    }
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamStateManager::MoveBufferFrom_INPUT_to_OUTPUT(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kInputToOutput, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveAllBuffersFrom_INPUT_to_OUTPUT()
{
    while (!m_inputBuffers.empty()) {
        GenTLHandle* hBuffer = m_inputBuffers.front();
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        SetToOutput(buffer);
        m_inputBuffers.pop_front();
        PushToOutput(hBuffer);
    }
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamStateManager::MoveBufferFrom_INPUT_to_DISCARD(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kInputToDiscard, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_OUTPUT_to_DISCARD(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kOutputToDiscard, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_ACQUIRING_to_DISCARD(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kAcquiringToDiscard, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_OUTPUT_to_USER(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kOutputToUser, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_INPUT_TO_ACQURING(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kInputToAcquiring, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_OUTPUT_TO_ACQURING(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kOutputToAcquiring, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_ACQUIRING_to_OUTPUT(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kAcquiringToOutput, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_USER_to_DISCARD(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBuffer(kUserToDiscard, hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveBufferFrom_USER_to_ANNOUNCED(GenTLHandle* hBuffer, bool checkState)
{
    return MoveBufferFrom_USER_to_DISCARD(hBuffer, checkState);
}

int OpenedDataStreamStateManager::MoveAllBuffersFrom_OUTPUT_to_DISCARD()
{
    for (GenTLHandle* hBuffer : m_outputBuffers) {
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        SetToDiscard(buffer);
    }
    m_outputBuffers.clear();
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamStateManager::MoveAllBuffers_to_DISCARD()
{
    for (GenTLHandle* hBuffer : m_announcedBuffers) {
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        const BufferState state = buffer.m_state;
        if (state == IN_DRIVER) {
            return Raise(GC_ERR_INVALID_BUFFER, "cannot move buffer in the driver to discard state");
        }
        if (state != IN_DISCARDED) {
            SetToDiscard(buffer);
        }
    }
    m_inputBuffers.clear();
    m_outputBuffers.clear();
    return GC_ERR_SUCCESS;
}

Buffer& OpenedDataStreamStateManager::BufferOf(GenTLHandle* hBuffer)
{
    return *CastHandleToBufferPtr(hBuffer);
}

void OpenedDataStreamStateManager::PushToInput(GenTLHandle* hBuffer)
{
    m_inputBuffers.push_back(hBuffer);
    m_inputCondition.notify_one();
}

void OpenedDataStreamStateManager::PushToOutput(GenTLHandle* hBuffer)
{
    m_outputBuffers.push_back(hBuffer);
    m_outputCondition.notify_one();
}

int OpenedDataStreamStateManager::MoveAllDiscarded(bool checkState, const char* function, int line)
{
    for (GenTLHandle* hBuffer : m_announcedBuffers) {
        Buffer& buffer = BufferOf(hBuffer);
        const BufferLock lock(buffer.m_mutex);
        const BufferState state = buffer.m_state;
        if (state == UNKNOWN) {
            return Raise(GC_ERR_INVALID_BUFFER, "can not move Unknown state buffer to input", function, line);
        }
        if (state != IN_DISCARDED) {
            continue;
        }
        if (const int code = MoveBufferFrom_DISCARD_to_INPUT(hBuffer, checkState); code != GC_ERR_SUCCESS) {
            return AppendName(code, function, line);
        }
    }
    return GC_ERR_SUCCESS;
}

int OpenedDataStreamStateManager::MoveBuffer(
    const BufferMove& move, GenTLHandle* hBuffer, bool checkState, const char* function, int line)
{
    Buffer& buffer = BufferOf(hBuffer);
    std::deque<GenTLHandle*>& source = move.source == &kInput ? m_inputBuffers : m_outputBuffers;
    if (checkState && buffer.m_state != move.from) {
        return Raise(GC_ERR_INVALID_BUFFER, move.otherState, function, line);
    }
    if (move.source != nullptr && source.empty()) {
        return Raise(GC_ERR_INVALID_BUFFER, move.source->empty, function, line);
    }
    if (move.source != nullptr && source.front() != hBuffer) {
        return Raise(GC_ERR_INVALID_BUFFER, move.source->notFront, function, line);
    }
    move.set(buffer);
    if (move.source != nullptr) {
        source.pop_front();
    }
    switch (move.target) {
        case Target::None:
            break;
        case Target::Input:
            PushToInput(hBuffer);
            break;
        case Target::Output:
            PushToOutput(hBuffer);
            break;
        case Target::Announced:
            m_announcedBuffers.push_back(hBuffer);
            break;
    }
    return GC_ERR_SUCCESS;
}

}  // namespace GenTL
