#include "log/LogUnlessMemoryIsShort.h"

#include "log/GLogger.h"

#include <exception>

namespace GenTL {

void LogUnlessMemoryIsShort(const char* text)
{
    try {
        GLogger::Error(text);
    } catch (const std::exception&) {
        // A record needs memory too.
    }
}

}  // namespace GenTL
