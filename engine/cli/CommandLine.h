// The arguments of a command: options in the common forms ("--name VALUE",
// "--name=VALUE", "--flag") and the arguments that are no option, with the
// parsers of the values the bus commands take.
#ifndef VELDOR_CLI_COMMAND_LINE_H
#define VELDOR_CLI_COMMAND_LINE_H

#include <map>
#include <set>
#include <string>
#include <vector>

namespace veldor::cli {

class CommandLine {
public:
    // An option that takes a value, and one that stands alone.
    CommandLine& Value(const std::string& name);
    CommandLine& Flag(const std::string& name);
    // An option that takes a value and gathers every one given: All answers
    // them in order (Get, as for any option, the last one).
    CommandLine& Repeated(const std::string& name);

    // False with the reason for an unknown option or a value missing.
    bool Parse(int argc, char** argv, std::string* error);

    bool Has(const std::string& name) const { return m_given.count(name) != 0; }
    std::string Get(const std::string& name, const std::string& otherwise = "") const;
    std::vector<std::string> All(const std::string& name) const;
    // The options given, in any order.
    std::vector<std::string> Given() const;
    const std::vector<std::string>& Arguments() const { return m_arguments; }

private:
    std::set<std::string> m_values;
    std::set<std::string> m_flags;
    std::set<std::string> m_repeated;
    std::map<std::string, std::string> m_given;
    std::map<std::string, std::vector<std::string>> m_all;
    std::vector<std::string> m_arguments;
};

// "20", "20s", "1.5s", "250ms", "2m", "1h": seconds; false for anything else
// or a negative duration.
bool ParseDuration(const std::string& text, double* seconds);
// "500000", "500k", "2M": bits per second, above 0.
bool ParseBitRate(const std::string& text, long* bitsPerSecond);
// A positive number.
bool ParseSpeed(const std::string& text, double* speed);

}  // namespace veldor::cli

#endif
