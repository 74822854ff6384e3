/// The moves of buffers between a stream's collections: what each refuses, writes, moves and wakes.
#include "StreamTest.h"
#include "buffers/Buffer.h"
#include "buffers/OpenedDataStreamGevStateManager.h"
#include "frame/GenTLHandle.h"
#include "stream/DataStream.h"
#include "stream/HALGvsp.h"

#include <boost/thread/lock_types.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using namespace GenTL;

namespace {

using Base = OpenedDataStreamStateManager;
using Manager = OpenedDataStreamGevStateManager;

std::uint8_t g_bitmap[1];

/// Calls visit with the fields that moves write, in the order of the patterns below.
template <typename Visit>
void ForEachField(Buffer& b, Visit visit)
{
    const auto each = [&visit](auto&... fields) { (visit(fields), ...); };
    each(b.m_newData, b.m_isQueued, b.m_isAcquiring, b.m_sizeFilled, b.m_dataSize, b.m_isIncomplete,
         b.m_imagePresent, b.m_containsChunkData, b.m_dataLargerThanBuffer, b.m_trailerReceived,
         b.m_leaderReceived, b.m_nextPacketTimerDone, b.m_frameId, b.m_bytesReceived,
         b.m_nextExpectedPacketId, b.m_resendRequestCount, b.m_packetsRemaining, b.m_packetBitmapSize);
}

const std::string kStates = "DIAVOUN";  // by their values

/// What a move to a state makes of the fields: 0, 1, or '.' for what it was. The last one is the bitmap.
constexpr const char* kFieldSets[] = {".000...............", "01000..............", ".110.10000000000000",
                                      "010................", ".10................", ".00................"};

void SetFields(Buffer& b, bool value)
{
    ForEachField(b, [value](auto& field) { field = value; });
    b.m_pPacketBitmap = value ? g_bitmap : nullptr;
}

std::string Fields(Buffer& b)
{
    std::string fields;
    ForEachField(b, [&fields](auto& field) { fields += field != 0 ? '1' : '0'; });
    return fields + (b.m_pPacketBitmap != nullptr ? '1' : '0');
}

/// The fields, which all had one value, after a move to a state.
std::string FieldsAfter(char state, bool value)
{
    std::string fields = kFieldSets[kStates.find(state)];
    std::replace(fields.begin(), fields.end(), '.', value ? '1' : '0');
    return fields;
}

/// A stream HAL of the kind that fills the buffers by itself, and has room for some.
class FilterDriver : public HALGvsp
{
public:
    int SetupLwfDriverBuffers(unsigned count) override
    {
        announced = count;
        return setupCode;
    }
    int QueueImageBufferInLwfDriver(GenTLHandle* hBuffer) override
    {
        if (taken.size() == room) {
            return GC_ERR_IO;
        }
        taken.push_back(hBuffer);
        return GC_ERR_SUCCESS;
    }

    unsigned announced = 0;
    int setupCode = GC_ERR_NOT_IMPLEMENTED;
    std::size_t room = 100;
    std::vector<GenTLHandle*> taken;
};

/// A stream with the buffers a, b and c, and managers of both kinds over its collections.
class Moves : public testing::Test, public DataStream
{
public:
    Moves() : DataStream(&g_bitmap, &g_bitmap)
    {
        ErrorCache::ReleaseErrorCache();
        for (int i = 0; i < 3; ++i) {
            void* handle = nullptr;
            EXPECT_EQ(0, AllocAndAnnounceBuffer(16, nullptr, &handle));
            buffers.push_back(CastHandleToBufferPtr(handle));
        }
        handles = m_announcedBuffers;
        a = handles[0];
    }
    ~Moves() override
    {
        Arrange(std::string(handles.size(), 'U'), "", "");
        for (std::size_t i = 0; i < handles.size(); ++i) {
            SetFields(*buffers[i], false);
            EXPECT_EQ(0, RevokeBuffer(handles[i], nullptr, nullptr));
        }
    }

    /// Announces as many buffers as there are states, and fills the queues: "cb" is c in front of b.
    void Arrange(const std::string& states, const std::string& in, const std::string& out)
    {
        const auto fill = [this](auto& collection, const std::string& names) {
            collection.clear();
            for (const char name : names) {
                collection.push_back(handles[static_cast<std::size_t>(name - 'a')]);
            }
        };
        fill(m_announcedBuffers, std::string("abc").substr(0, states.size()));
        fill(m_inputBuffers, in);
        fill(m_outputBuffers, out);
        for (std::size_t i = 0; i < states.size(); ++i) {
            buffers[i]->m_state = static_cast<BufferState>(kStates.find(states[i]));
        }
        m_numInDriver = static_cast<std::uint64_t>(std::count(states.begin(), states.end(), 'V'));
        driver.taken.clear();
    }
    template <typename Collection>
    std::string Names(const Collection& collection) const
    {
        std::string names;
        for (const GenTLHandle* handle : collection) {
            names += "abc"[std::find(handles.begin(), handles.end(), handle) - handles.begin()];
        }
        return names;
    }
    std::string Places() const
    {
        std::string states;
        for (GenTLHandle* handle : m_announcedBuffers) {
            states += kStates[CastHandleToBufferPtr(handle)->m_state];
        }
        return states + " in:" + Names(m_inputBuffers) + " out:" + Names(m_outputBuffers) +
               " drv:" + std::to_string(m_numInDriver);
    }

    /// Expects that act wakes who waits for the condition.
    template <typename Act>
    static void ExpectWakes(boost::mutex& mutex, boost::condition_variable& condition, Act act)
    {
        boost::unique_lock<boost::mutex> lock(mutex);
        std::thread mover([&] {
            boost::unique_lock<boost::mutex>(mutex).unlock();  // had once this thread waits
            act();
        });
        EXPECT_EQ(boost::cv_status::no_timeout, condition.wait_for(lock, boost::chrono::seconds(5)));
        mover.join();
    }

    std::vector<Buffer*> buffers;
    std::vector<GenTLHandle*> handles;
    GenTLHandle* a = nullptr;
    FilterDriver driver;
    IHALGvsp* pHal = &driver;
    Base base{m_announcedBuffers, m_announcedMutex, m_inputBuffers,    m_inputMutex, m_inputCondition,
              m_outputBuffers,    m_outputMutex,    m_outputCondition, m_numInDriver};
    Manager gev{m_announcedBuffers, m_announcedMutex, m_inputBuffers, m_inputMutex,
                m_inputCondition,   m_outputBuffers,  m_outputMutex,  m_outputCondition,
                m_numInDriver,      kDriverNone,      m_isGrabbing,   pHal};
};

struct Single
{
    const char* name;
    int (Base::*move)(GenTLHandle*, bool);
    char from;
    const char* words;  // about another state
    char source;        // 'i' or 'o', ' ' for none
    char to;
    char target;  // as source, 'a' for the announced buffers
};

#define MOVE(name) "MoveBufferFrom_" #name, &Base::MoveBufferFrom_##name
// clang-format off
const Single kSingles[] = {
    {MOVE(DISCARD_to_INPUT),     'D', "buffer is not in the announced buffers queue", ' ', 'I', 'i'},
    {MOVE(USER_to_INPUT),        'U', "buffer is not in coming from the user",        ' ', 'I', 'i'},
    {MOVE(ACQUIRING_to_INPUT),   'A', "buffer is not in the acquring state",          ' ', 'I', 'i'},
    {MOVE(OUTPUT_to_INPUT),      'O', "buffer is not in the output buffers queue",    'o', 'I', 'i'},
    {MOVE(INPUT_to_OUTPUT),      'I', "buffer is not in the input buffers queue",     'i', 'O', 'o'},
    {MOVE(ACQUIRING_to_OUTPUT),  'A', "buffer is not in the acquring state",          ' ', 'O', 'o'},
    {MOVE(INPUT_to_DISCARD),     'I', "buffer is not in the input buffers queue",     'i', 'D', ' '},
    {MOVE(OUTPUT_to_DISCARD),    'O', "buffer is not in the output buffers queue",    'o', 'D', ' '},
    {MOVE(ACQUIRING_to_DISCARD), 'A', "buffer is not in the acquiring state",         ' ', 'D', ' '},
    {MOVE(USER_to_DISCARD),      'U', "buffer is not in coming from the user",        ' ', 'D', 'a'},
    {MOVE(OUTPUT_to_USER),       'O', "buffer is not in the output buffers queue",    'o', 'U', ' '},
    {MOVE(INPUT_TO_ACQURING),    'I', "buffer is not in the input buffers queue",     'i', 'A', ' '},
    {MOVE(OUTPUT_TO_ACQURING),   'O', "buffer is not in the output buffers queue",    'o', 'A', ' '},
};
// clang-format on

TEST_F(Moves, RefuseOneByOneAndChangeNothing)
{
    const auto refuse = [this](const Single& c, bool checkState, const std::string& words) {
        SetFields(*buffers[0], true);
        const std::string places = Places();
        EXPECT_EQ(GC_ERR_INVALID_BUFFER, (base.*c.move)(a, checkState));
        EXPECT_EQ(c.name + (": " + words), TakeMessages());
        EXPECT_EQ(places, Places());
        EXPECT_EQ(std::string(19, '1'), Fields(*buffers[0]));
    };
    for (const Single& c : kSingles) {
        SCOPED_TRACE(c.name);
        for (const char state : kStates) {
            if (state != c.from) {
                Arrange({state}, "", "");
                refuse(c, true, c.words);
            }
        }
        if (c.source != ' ') {
            const std::string queue = c.source == 'i' ? "input" : "output";
            Arrange({c.from}, "", "");
            refuse(c, true, "the " + queue + " queue is empty");
            Arrange("NN", "ba", "ba");
            refuse(c, false, "the buffer to move is not in the front of the " + queue + " queue");
        }
    }
}

TEST_F(Moves, WriteAndMoveOneByOne)
{
    // The manager of a GigE Vision stream does the same while no driver fills the buffers.
    for (int setting = 0; setting < 3; ++setting) {
        Base& manager = setting == 0 ? base : gev;
        gev.SetDriverType(setting == 1 ? kDriverLwf : kDriverUdpSocket);
        m_isGrabbing = setting == 2;
        const bool before = setting == 1;
        const bool checkState = setting == 0;
        for (const Single& c : kSingles) {
            SCOPED_TRACE(c.name);
            Arrange({checkState ? c.from : 'N', 'N'}, c.source == 'i' ? "ab" : "b",
                    c.source == 'o' ? "ab" : "b");
            SetFields(*buffers[0], before);
            EXPECT_EQ(0, (manager.*c.move)(a, checkState));
            const std::string in = c.target == 'i' ? "ba" : "b";
            const std::string out = c.target == 'o' ? "ba" : "b";
            const std::string states = {c.to, 'N', c.target == 'a' ? c.to : '\0'};  // of what is announced
            EXPECT_EQ(states.c_str() + (" in:" + in + " out:" + out + " drv:0"), Places());
            EXPECT_EQ(FieldsAfter(c.to, before), Fields(*buffers[0]));
        }
    }
    EXPECT_TRUE(driver.taken.empty());
}

TEST_F(Moves, WakeWhoWaitsForTheQueue)
{
    Arrange("AI", "b", "");
    ExpectWakes(m_inputMutex, m_inputCondition,
                [this] { EXPECT_EQ(0, base.MoveBufferFrom_ACQUIRING_to_INPUT(a, true)); });
    ExpectWakes(m_outputMutex, m_outputCondition,
                [this] { EXPECT_EQ(0, base.MoveAllBuffersFrom_INPUT_to_OUTPUT()); });
}

/// A move, or many, with buffers in the given states and queues. The manager of a GigE Vision stream has a
/// driver that fills the buffers and has room for one.
struct Scene
{
    const char* name;
    int (*move)(Moves& t);
    const char* states;
    const char* in;
    const char* out;
    const char* after;
    int code;
    const char* errors;  // with @ for the name
};

#define BASE(name) #name, [](Moves & t) { return t.base.name(); }
#define GEV(name) #name, [](Moves & t) { return t.gev.name(); }
#define GEV_ONE(name) #name, [](Moves & t) { return t.gev.name(t.a, true); }
constexpr int kIo = GC_ERR_IO;
constexpr int kInvalid = GC_ERR_INVALID_BUFFER;
constexpr const char* kIoError = "@: GenTL::GC_ERR_IO(-1010)";
constexpr const char* kUnknownState = "@: can not move Unknown state buffer to input";
// clang-format off
const Scene kScenes[] = {
    {BASE(MoveAllBuffersFrom_INPUT_to_OUTPUT), "IIO", "ba", "c", "OOO in: out:cba drv:0", 0, ""},
    {GEV(MoveAllBuffersFrom_INPUT_to_OUTPUT), "UUU", "ba", "c", "OOU in: out:cba drv:0", 0, ""},
    {BASE(MoveAllBuffersFrom_OUTPUT_to_INPUT), "IUO", "a", "cb", "III in:acb out: drv:0", 0, ""},
    {GEV(MoveAllBuffersFrom_OUTPUT_to_INPUT), "OOO", "", "cba", "OVV in: out:a drv:1", kIo, kIoError},
    {BASE(MoveAllBuffersFrom_OUTPUT_to_DISCARD), "IUO", "a", "cb", "IDD in:a out: drv:0", 0, ""},

    {BASE(MoveAllBuffers_to_INPUT), "IUO", "a", "c", "IUI in:ac out: drv:0", 0, ""},
    {BASE(MoveAllBuffers_to_INPUT), "DOO", "", "cb", "IOO in:a out:cb drv:0", kInvalid,
     "MoveBufferFrom_OUTPUT_to_INPUT: the buffer to move is not in the front of the output queue; "
     "@: GenTL::GC_ERR_INVALID_BUFFER(-1013)"},
    {BASE(MoveAllBuffers_to_INPUT), "DVD", "", "", "IVD in:a out: drv:1", kInvalid,
     "@: can not move driver buffer to input; a buffer is never in driver state unless in GEV state manager"},
    {BASE(MoveAllBuffers_to_INPUT), "ADD", "", "", "ADD in: out: drv:0", kInvalid,
     "@: can not move currently being filled buffer to input"},
    {BASE(MoveAllBuffers_to_INPUT), "NDD", "", "", "NDD in: out: drv:0", kInvalid, kUnknownState},
    {GEV(MoveAllBuffers_to_INPUT), "VIU", "b", "", "IIU in:ba out: drv:0", 0, ""},
    {GEV(MoveAllBuffers_to_INPUT), "VDO", "", "c", "IVV in:a out:c drv:1", kIo, kIoError},
    {GEV(MoveAllBuffers_to_INPUT), "VAD", "", "", "IAD in:a out: drv:0", kInvalid,
     "@: can not move currently filled buffer to input"},

    {BASE(MoveAllUnqueuedBuffers_to_INPUT), "UDD", "", "", "UII in:bc out: drv:0", 0, ""},
    {BASE(MoveAllUnqueuedBuffers_to_INPUT), "ODN", "", "a", "OIN in:b out:a drv:0", kInvalid, kUnknownState},
    {GEV(MoveAllUnqueuedBuffers_to_INPUT), "DDD", "", "", "VVD in: out: drv:1", kIo, kIoError},

    {BASE(MoveAllBuffers_to_DISCARD), "IOA", "a", "b", "DDD in: out: drv:0", 0, ""},
    {BASE(MoveAllBuffers_to_DISCARD), "UND", "a", "b", "DDD in: out: drv:0", 0, ""},
    {BASE(MoveAllBuffers_to_DISCARD), "IVO", "a", "c", "DVO in:a out:c drv:1", kInvalid,
     "@: cannot move buffer in the driver to discard state"},

    // The driver takes a buffer whatever its state, and out of no queue.
    {GEV_ONE(MoveBufferFrom_OUTPUT_to_INPUT), "N", "", "ba", "V in: out:ba drv:1", 0, ""},
    {GEV_ONE(MoveBufferFrom_ACQUIRING_to_INPUT), "N", "", "ba", "V in: out:ba drv:1", 0, ""},
    {GEV_ONE(MoveBufferFrom_DRIVER_to_INPUT_), "UV", "b", "b", "IV in:ba out:b drv:0", 0, ""},
    {GEV_ONE(MoveBufferFrom_DRIVER_to_OUTPUT), "UV", "b", "b", "OV in:b out:ba drv:0", 0, ""},
    {GEV(MoveAllBuffersFrom_DRIVER_to_OUTPUT), "VOV", "", "b", "OOO in: out:bac drv:0", 0, ""},
    {GEV(MoveAllBuffersFrom_INPUT_to_DRIVER_toStartAcquisition), "III", "cba", "", "IVV in:a out: drv:1", kIo, kIoError},
};
// clang-format on

TEST_F(Moves, ByDriversAndOfManyBuffers)
{
    gev.SetDriverType(kDriverLwf);
    m_isGrabbing = true;
    driver.room = 1;
    driver.setupCode = GC_ERR_SUCCESS;
    for (const Scene& c : kScenes) {
        for (const bool before : {false, true}) {
            SCOPED_TRACE(std::string(c.name) + " " + c.states + " in:" + c.in + " out:" + c.out);
            Arrange(c.states, c.in, c.out);
            for (Buffer* buffer : buffers) {
                SetFields(*buffer, before);
            }
            EXPECT_EQ(c.code, c.move(*this));
            EXPECT_EQ(std::regex_replace(c.errors, std::regex("@"), c.name), TakeMessages());
            EXPECT_EQ(c.after, Places());
            for (std::size_t i = 0; i < m_announcedBuffers.size(); ++i) {
                const bool moved = c.states[i] != c.after[i];
                EXPECT_EQ(moved ? FieldsAfter(c.after[i], before) : std::string(19, before ? '1' : '0'),
                          Fields(*buffers[i]));
            }
        }
    }
}

TEST_F(Moves, IntoTheDriverAtTheStartOfAcquisition)
{
    EXPECT_EQ(GC_ERR_INVALID_PARAMETER, gev.SetDriverType(static_cast<DriverType>(kDriverTcp + 1)));
    Arrange("UUU", "cab", "");
    EXPECT_EQ(GC_ERR_NOT_IMPLEMENTED, gev.MoveAllBuffersFrom_INPUT_to_DRIVER_toStartAcquisition());
    EXPECT_EQ("UUU in:cab out: drv:0", Places());
    driver.setupCode = GC_ERR_SUCCESS;
    EXPECT_EQ(0, gev.MoveAllBuffersFrom_INPUT_to_DRIVER_toStartAcquisition());
    EXPECT_EQ(3U, driver.announced);
    EXPECT_EQ("cab", Names(driver.taken));
    EXPECT_EQ("VVV in: out: drv:3", Places());
    EXPECT_EQ(1U, buffers[0]->m_driverIndex);
}

// A second entry of the buffer would dangle.
TEST_F(Moves, BackFromTheUserLeaveNothingBehindARevocation)
{
    ASSERT_EQ(0, base.MoveBufferFrom_USER_to_ANNOUNCED(a, true));
    EXPECT_EQ("abca", Names(m_announcedBuffers));
    EXPECT_EQ(0, RevokeBuffer(a, nullptr, nullptr));
    EXPECT_EQ("bc", Names(m_announcedBuffers));
    handles.erase(handles.begin());
    buffers.erase(buffers.begin());
}

}  // namespace
