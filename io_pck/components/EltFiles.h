// Element files (.velt): the elements of one stream, each whole (its head and
// its payload) as the framework serializes it.
//
//   head, 16 bytes:  "VELT", the format (uint32, 1), the byte order mark
//                    0x01020304 (uint32), 0 (uint32)
//   each element:    its length L (uint32), then L bytes: the element,
//                    serialized (the framework's version 102)
//
// Numbers stand in the writing machine's byte order, as they do inside the
// serialized elements; a reader of the other byte order knows the file by
// its mark and refuses it.
#ifndef VELDOR_IO_ELT_FILES_H
#define VELDOR_IO_ELT_FILES_H

#include <cstdint>
#include <string>
#include <vector>

#include "veld_os_helpers.h"

namespace veldor_io {

// Elements larger than this are not written, and a length above it is a
// broken file.
const std::uint32_t kMaxEltBytes = 1u << 30;

class EltFileWriter {
public:
    // Creates or empties the file and writes its head.
    bool Open(const std::string& path);
    bool Write(const void* element, std::uint32_t size);
    // Into the system's hands and onto the disk.
    bool Flush();
    bool Close();
    // Why the last operation failed.
    const std::string& Error() const { return m_error; }

private:
    bool Fail();

    VELDFileWriter m_file;
    std::string m_error;
};

enum class EltRead { Element, End, Broken };

class EltFileReader {
public:
    // Opens the file and checks its head.
    bool Open(const std::string& path);
    // The next element's bytes; at a broken element, Error() tells why.
    EltRead Next(std::vector<unsigned char>& element);
    const std::string& Error() const { return m_error; }

private:
    VELDFileReader m_file;
    std::string m_path;
    std::string m_error;
};

}  // namespace veldor_io

#endif
