/* The public header is usable from C: its layout checks compile there too. */
#include "NXBusApiCan.h"

int nxsim_header_c_check(void)
{
    NXSCanMessage message = {0};
    return (int)sizeof message;
}
