#include "device/ProtectedSet.h"

namespace GenTL {

ProtectedSet<void*>& g_userBuffersProtectedSet = *new ProtectedSet<void*>();

}  // namespace GenTL
