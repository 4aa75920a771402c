// NxGetProductPath.exe --product NorvexBusAPI
//
// The product path tool of the open bus libraries: prints the folder where
// the bus access product is installed, with its closing separator, on one
// line. The open libraries are put at the product's fixed install path, so
// that is the folder it tells. Anything else is refused with a message on
// the standard error stream and exit status 2.
#include <cstdio>
#include <cstring>

#include "NxBusLibraryPaths.h"

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--product") == 0) {
        if (std::strcmp(argv[2], "NorvexBusAPI") == 0) {
            std::printf("%s/\n", NX_BUSAPI_BIN_DIR);
            return 0;
        }
        std::fprintf(stderr, "NxGetProductPath: unknown product \"%s\"; the product known here is NorvexBusAPI\n",
                     argv[2]);
        return 2;
    }
    std::fprintf(stderr, "usage: NxGetProductPath.exe --product NorvexBusAPI\n");
    return 2;
}
