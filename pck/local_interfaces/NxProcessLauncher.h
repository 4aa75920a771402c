// Where the bus access product is installed, as the product's path tool
// tells it. The tool sits in the folder "bin" beside the package and prints
// one line: the product's folder with its closing separator.
//
// Nothing in the package calls this: the bus libraries are loaded from their
// fixed install paths. It is the way to find a product installed elsewhere.
#ifndef NX_PROCESS_LAUNCHER_H
#define NX_PROCESS_LAUNCHER_H

#include <string>

class NxProcessLauncher {
public:
    // Sets filePath to the product's folder followed by fileName. Throws
    // std::runtime_error "GetBusApiDllFilePath failed: <reason>" when the
    // tool can't be run; filePath is then untouched.
    static void GetBusApiDllFilePath(const std::string& fileName, std::string& filePath);
};

#endif
