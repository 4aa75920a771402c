#include "process_identity.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace nxsim {

namespace {

// State letter and start time from /proc/<pid>/stat; false if there is none.
bool ReadProcStat(int32_t pid, char& state, uint64_t& startTime)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!in || !std::getline(in, text))
        return false;
    const auto close = text.rfind(')');
    if (close == std::string::npos)
        return false;
    std::istringstream fields(text.substr(close + 1));
    std::string field;
    // Fields after the command: 3 is the state, 22 the start time.
    for (int index = 3; fields >> field; ++index) {
        if (index == 3)
            state = field.empty() ? '?' : field[0];
        if (index == 22) {
            startTime = std::strtoull(field.c_str(), nullptr, 10);
            return true;
        }
    }
    return false;
}

}  // namespace

ProcessId SelfProcessId()
{
    ProcessId id;
    id.pid = static_cast<int32_t>(getpid());
    char state = 0;
    ReadProcStat(id.pid, state, id.startTime);
    return id;
}

bool ProcessAlive(const ProcessId& id)
{
    if (id.pid <= 0)
        return false;
    char state = 0;
    uint64_t startTime = 0;
    if (!ReadProcStat(id.pid, state, startTime))
        return kill(id.pid, 0) == 0 || errno == EPERM;
    if (state == 'Z' || state == 'X' || state == 'x')
        return false;
    return startTime == id.startTime;
}

}  // namespace nxsim
