// The python-can partner of the interoperability tests: Debian's python3
// running interop.py (see there for what it prints), and its lines read
// back as frames.
#ifndef VELDOR_TESTS_CAN_LOG_PYTHON_PARTNER_H
#define VELDOR_TESTS_CAN_LOG_PYTHON_PARTNER_H

#include <string>
#include <vector>

#include "can_log/CanFrame.h"

namespace canlog_test {

bool PythonCanPresent();
// Runs `script` with its verb, file and argument and returns what it
// printed; fails the test if it does not end well.
std::string RunPartner(const std::string& script, const std::string& verb, const std::string& path,
                       const std::string& argument = "");
// python-can writes an ASC file's date line from the wall clock, cutting
// the microseconds to milliseconds with a text replacement that also cuts
// any other place where the same digits stand: about one file in a few
// hundred gets a date line such as "... PM 2" for "... PM 2026". That line
// is unreadable and told as such; the frames count from the trigger
// block's date and are not touched by it. True for such a file.
bool PythonCanCutItsDateLine(const std::string& path);
// The partner's lines as frames.
std::vector<veldor::canlog::CanFrame> ParseFrames(const std::string& text);

}  // namespace canlog_test

#endif
