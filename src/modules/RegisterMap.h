/// How a module's register map turns an address into a call.
#pragma once

#include "frame/Error.h"

#include <cstddef>

namespace GenTL {

// Bytes, of almost all registers.
inline constexpr unsigned long kTextLength = 512;
inline constexpr unsigned long kNumberLength = 8;

/// One register of Map, an abstract class with one virtual accessor per row and direction. A null accessor is
/// a direction that the register's access mode forbids.
template <typename Map>
struct RegisterRow
{
    unsigned long address;
    const char* name;      ///< as in the module's description
    unsigned long length;  ///< bytes, as declared there; an accessor may write fewer
    int (Map::*get)(void* pBuffer, unsigned long* piSize);
    int (Map::*set)(const void* pBuffer, unsigned long* piSize);
};

template <typename Map, std::size_t size>
const RegisterRow<Map>* FindRegister(const RegisterRow<Map> (&rows)[size], unsigned long address)
{
    for (const RegisterRow<Map>& row : rows) {
        if (row.address == address) {
            return &row;
        }
    }
    return nullptr;
}

/// A register is reached by its exact address only; its length plays no part. Stores GC_ERR_INVALID_PARAMETER
/// for a null argument, GC_ERR_INVALID_ADDRESS for an unknown address, GC_ERR_ACCESS_DENIED for a write-only
/// register.
template <typename Map, std::size_t size>
int ReadRegister(Map& map,
                 const RegisterRow<Map> (&rows)[size],
                 unsigned long address,
                 void* pBuffer,
                 unsigned long* piSize)
{
    if (pBuffer == nullptr || piSize == nullptr) {
        return Store(GC_ERR_INVALID_PARAMETER);
    }
    const RegisterRow<Map>* row = FindRegister(rows, address);
    if (row == nullptr) {
        return Store(GC_ERR_INVALID_ADDRESS);
    }
    return row->get != nullptr ? (map.*row->get)(pBuffer, piSize) : Store(GC_ERR_ACCESS_DENIED);
}

/// As ReadRegister. unknown is the code of a write to an unknown address.
template <typename Map, std::size_t size>
int WriteRegister(Map& map,
                  const RegisterRow<Map> (&rows)[size],
                  unsigned long address,
                  const void* pBuffer,
                  unsigned long* piSize,
                  int unknown = GC_ERR_INVALID_ADDRESS)
{
    if (pBuffer == nullptr || piSize == nullptr) {
        return Store(GC_ERR_INVALID_PARAMETER);
    }
    const RegisterRow<Map>* row = FindRegister(rows, address);
    if (row == nullptr) {
        return Store(unknown);
    }
    return row->set != nullptr ? (map.*row->set)(pBuffer, piSize) : Store(GC_ERR_ACCESS_DENIED);
}

}  // namespace GenTL
