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

// Where a printer's lines go: standard output, or the file that the
// module's property `file` names; and its figure `printed`.
class LineFile {
public:
    LineFile() = default;
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;
    ~LineFile() { Close(); }

    // A file that can't be made is the module's Error.
    void Open(VELDModule& module);
    // One line; the line break is added.
    void Put(std::string line)
    {
        line += '\n';
        std::fputs(line.c_str(), m_out);
    }
    // After the `lines` lines of one element: flushed and counted.
    void Printed(VELDModule& module, int lines);
    void Close();

private:
    std::FILE* m_out = nullptr;
    VELDInt64 m_printed = 0;
};

}  // namespace veldor_io

#endif
