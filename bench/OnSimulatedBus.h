// A benchmark that needs the simulated bus libraries at their fixed paths
// runs itself again under tools/with-sim-bus when they are not there.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace veldor_bench {

// Returns when `library` can be read (the program goes on); otherwise runs
// the program anew under tools/with-sim-bus, once, and does not return.
inline void OnSimulatedBus(const char* library, int argc, char** argv, const char* who)
{
    if (access(library, R_OK) == 0)
        return;
    if (std::getenv("VELDOR_BENCH_ON_SIM")) {
        std::fprintf(stderr, "%s: no library at %s\n", who, library);
        std::exit(1);
    }
    setenv("VELDOR_BENCH_ON_SIM", "1", 1);
    std::vector<char*> args{const_cast<char*>(VELDOR_WITH_SIM_BUS), const_cast<char*>("--libraries"),
                            const_cast<char*>(VELDOR_SIM_LIBRARIES), const_cast<char*>("--")};
    for (int i = 0; i < argc; ++i)
        args.push_back(argv[i]);
    args.push_back(nullptr);
    execv(VELDOR_WITH_SIM_BUS, args.data());
    std::perror("tools/with-sim-bus");
    std::exit(1);
}

}  // namespace veldor_bench
