#include "modules/IBaseModule.h"

#include "frame/GenTLHandle.h"

namespace GenTL {

IBaseModule::~IBaseModule()
{
    ForgetModule(this);
}

}  // namespace GenTL
