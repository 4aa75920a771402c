/* The public header is usable from C: its layout checks compile there too. */
#include "NXBusApiCan.h"

int nxsim_header_c_check(void)
{
    NXSCanMessage message = {0};
    return (int)sizeof message;
}

/* So is the Ethernet library's. */
#include "NXBusApiEthernet.h"

int nxsim_eth_header_c_check(void)
{
    NXSEthRawFrame frame = {0};
    return (int)sizeof frame;
}
