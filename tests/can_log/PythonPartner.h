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
// The partner's lines as frames.
std::vector<veldor::canlog::CanFrame> ParseFrames(const std::string& text);

}  // namespace canlog_test

#endif
