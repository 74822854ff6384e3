/* The published header is for C programs too. */
#include "frame/GenTL.h"

int main(void)
{
    const PGCInitLib initialise = 0;
    return initialise != 0 || sizeof(PORT_REGISTER_STACK_ENTRY) != 24;
}
