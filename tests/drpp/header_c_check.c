/* The public header is usable from C: its layout checks compile there too. */
#include "NxDRPreProcessing.h"

int drpp_header_c_check(void)
{
    NxDRPPStatistics statistics = {0};
    return (int)sizeof statistics;
}
