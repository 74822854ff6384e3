/// Texts in a discovery record.
#pragma once

#include "gev/Handles.h"

#include <string>

namespace GenTL {

/// The bytes from offset up to the first NUL. A full field runs on into the next one, but never beyond the
/// record's end.
inline std::string RecordText(const DiscoveryRecord& record, std::size_t offset)
{
    std::string text;
    for (; offset < record.size() && record[offset] != 0; ++offset) {
        text.push_back(static_cast<char>(record[offset]));
    }
    return text;
}

}  // namespace GenTL
