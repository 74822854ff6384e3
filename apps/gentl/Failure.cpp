#include "gentl/Failure.h"

#include "frame/GenTL.h"

#include <cstring>
#include <sstream>
#include <utility>

namespace Tool {
namespace {

struct CodeName
{
    std::int32_t code;
    const char* name;
};

constexpr CodeName kCodeNames[] = {
    {GenTL::GC_ERR_ERROR,              "GC_ERR_ERROR"             },
    {GenTL::GC_ERR_NOT_INITIALIZED,    "GC_ERR_NOT_INITIALIZED"   },
    {GenTL::GC_ERR_NOT_IMPLEMENTED,    "GC_ERR_NOT_IMPLEMENTED"   },
    {GenTL::GC_ERR_RESOURCE_IN_USE,    "GC_ERR_RESOURCE_IN_USE"   },
    {GenTL::GC_ERR_ACCESS_DENIED,      "GC_ERR_ACCESS_DENIED"     },
    {GenTL::GC_ERR_INVALID_HANDLE,     "GC_ERR_INVALID_HANDLE"    },
    {GenTL::GC_ERR_INVALID_ID,         "GC_ERR_INVALID_ID"        },
    {GenTL::GC_ERR_NO_DATA,            "GC_ERR_NO_DATA"           },
    {GenTL::GC_ERR_INVALID_PARAMETER,  "GC_ERR_INVALID_PARAMETER" },
    {GenTL::GC_ERR_IO,                 "GC_ERR_IO"                },
    {GenTL::GC_ERR_TIMEOUT,            "GC_ERR_TIMEOUT"           },
    {GenTL::GC_ERR_ABORT,              "GC_ERR_ABORT"             },
    {GenTL::GC_ERR_INVALID_BUFFER,     "GC_ERR_INVALID_BUFFER"    },
    {GenTL::GC_ERR_NOT_AVAILABLE,      "GC_ERR_NOT_AVAILABLE"     },
    {GenTL::GC_ERR_INVALID_ADDRESS,    "GC_ERR_INVALID_ADDRESS"   },
    {GenTL::GC_ERR_BUFFER_TOO_SMALL,   "GC_ERR_BUFFER_TOO_SMALL"  },
    {GenTL::GC_ERR_INVALID_INDEX,      "GC_ERR_INVALID_INDEX"     },
    {GenTL::GC_ERR_PARSING_CHUNK_DATA, "GC_ERR_PARSING_CHUNK_DATA"},
    {GenTL::GC_ERR_INVALID_VALUE,      "GC_ERR_INVALID_VALUE"     },
    {GenTL::GC_ERR_RESOURCE_EXHAUSTED, "GC_ERR_RESOURCE_EXHAUSTED"},
    {GenTL::GC_ERR_OUT_OF_MEMORY,      "GC_ERR_OUT_OF_MEMORY"     },
    {GenTL::GC_ERR_BUSY,               "GC_ERR_BUSY"              },
};

/// A row applies when both keys fit; a null function and the code 0 fit all. The first row that applies
/// counts.
struct HintRow
{
    const char* function;
    std::int32_t code;
    const char* hint;
};

// clang-format off
constexpr HintRow kHints[] = {
    {"IFOpenDevice", GenTL::GC_ERR_ACCESS_DENIED,
     "Another program controls this camera. Close it, or wait some seconds if it has died: the camera lets go "
     "when the heartbeat stops."},
    {"IFOpenDevice", GenTL::GC_ERR_RESOURCE_IN_USE,
     "This camera is open already, here or in another program. Close it there first."},
    {"IFOpenDevice", GenTL::GC_ERR_TIMEOUT,
     "The camera was found but doesn't answer. See with `gentl list` whether its address lies in the "
     "interface's subnet, and let the firewall pass UDP port 3956."},
    {"IFOpenDevice", GenTL::GC_ERR_INVALID_ID,
     "The camera is gone from the interface. See `gentl list`."},
    {"DSStartAcquisition", GenTL::GC_ERR_IO,
     "Over TCP (--stream 1) the camera has to accept a connection on port 58243. Few cameras do."},
    {"DSStartAcquisition", 0,
     "Often the camera's packets don't fit the network path: try --packet-size 1500 (or set the interface's "
     "MTU to 9000 for large packets), and let the firewall pass UDP datagrams from the camera."},
    {"DSAllocAndAnnounceBuffer", GenTL::GC_ERR_INVALID_ADDRESS,
     "The camera has none of the registers that streaming over TCP (--stream 1) needs."},
    {"DSAllocAndAnnounceBuffer", 0,
     "Fewer (--buffers) or smaller buffers may help."},
    {"GCReadPort", GenTL::GC_ERR_INVALID_ADDRESS,
     "The camera has no register at this address."},
    {"GCWritePort", GenTL::GC_ERR_INVALID_ADDRESS,
     "The camera has no register at this address."},
    {"GCWritePort", GenTL::GC_ERR_ACCESS_DENIED,
     "The camera doesn't let this register be written now."},
    {"TLOpen", 0,
     "The host's network interfaces couldn't be listed."},
    {nullptr, GenTL::GC_ERR_TIMEOUT,
     "The camera didn't answer in time. Check cable, power and addresses (`gentl list`)."},
    {nullptr, GenTL::GC_ERR_BUSY,
     "The camera is busy with something else. Try again in a moment."},
    {nullptr, GenTL::GC_ERR_IO,
     "The network didn't take the data. Check that the interface is up (`ip addr`)."},
    {nullptr, GenTL::GC_ERR_NOT_IMPLEMENTED,
     "This producer doesn't offer the operation; try another one with --producer."},
};
// clang-format on

void AppendIndented(std::ostringstream& out, const std::string& text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        out << "\n    " << line;
    }
}

}  // namespace

Failure::Failure(const std::string& what, std::string hint, std::string details)
    : std::runtime_error(what), m_hint(std::move(hint)), m_details(std::move(details))
{
}

std::string Failure::Report() const
{
    std::ostringstream out;
    out << what();
    AppendIndented(out, m_details);
    if (!m_hint.empty()) {
        out << "\n  what to do: " << m_hint;
    }
    return out.str();
}

std::string CodeText(std::int32_t code)
{
    for (const CodeName& row : kCodeNames) {
        if (row.code == code) {
            return std::string(row.name) + " (" + std::to_string(code) + ")";
        }
    }
    return "error " + std::to_string(code);
}

std::string HintFor(const char* function, std::int32_t code)
{
    for (const HintRow& row : kHints) {
        const bool functionFits = row.function == nullptr || std::strcmp(row.function, function) == 0;
        if (functionFits && (row.code == 0 || row.code == code)) {
            return row.hint;
        }
    }
    return {};
}

}  // namespace Tool
