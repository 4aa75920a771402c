// What the printers share: where their lines go, and how they tell times
// and elements.
#ifndef VELDOR_IO_PRINTED_LINES_H
#define VELDOR_IO_PRINTED_LINES_H

#include <cstdio>
#include <string>

#include "veld_types.h"

class VELDModule;

namespace veldor_io {

// Seconds with six decimals, with a sign when negative.
std::string FormatTime(VELDTimestamp t);
// "  elt=<element time> #<index>/<count>": a frame's place in its element.
std::string ElementInfo(VELDTimestamp elementTime, int index, int count);

// Standard output, or the file that the module's property `file` names.
class LineFile {
public:
    LineFile() = default;
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;
    ~LineFile() { Close(); }

    // A file that can't be made is the module's Error.
    void Open(VELDModule& module);
    void Put(const std::string& line) { std::fputs(line.c_str(), m_out); }
    void Flush() { std::fflush(m_out); }
    void Close();

private:
    std::FILE* m_out = nullptr;
};

}  // namespace veldor_io

#endif
