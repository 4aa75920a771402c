#include "CommandLine.h"

#include <cmath>
#include <cstdlib>

namespace veldor::cli {

CommandLine& CommandLine::Value(const std::string& name)
{
    m_values.insert(name);
    return *this;
}

CommandLine& CommandLine::Repeated(const std::string& name)
{
    m_values.insert(name);
    m_repeated.insert(name);
    return *this;
}

CommandLine& CommandLine::Flag(const std::string& name)
{
    m_flags.insert(name);
    return *this;
}

bool CommandLine::Parse(int argc, char** argv, std::string* error)
{
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--") {
            for (++i; i < argc; ++i) m_arguments.push_back(argv[i]);
            break;
        }
        if (arg.size() < 2 || arg[0] != '-') {
            m_arguments.push_back(arg);
            continue;
        }
        std::string value;
        const std::size_t equals = arg.find('=');
        const bool inline_value = equals != std::string::npos;
        if (inline_value) {
            value = arg.substr(equals + 1);
            arg = arg.substr(0, equals);
        }
        if (m_flags.count(arg) && !inline_value) {
            m_given[arg] = "";
        } else if (m_values.count(arg)) {
            if (!inline_value) {
                if (i + 1 >= argc) {
                    *error = arg + " needs a value";
                    return false;
                }
                value = argv[++i];
            }
            m_given[arg] = value;
            if (m_repeated.count(arg)) m_all[arg].push_back(value);
            else m_all[arg] = {value};
        } else {
            *error = "unknown option \"" + arg + "\"";
            return false;
        }
    }
    return true;
}

std::string CommandLine::Get(const std::string& name, const std::string& otherwise) const
{
    auto it = m_given.find(name);
    return it == m_given.end() ? otherwise : it->second;
}

std::vector<std::string> CommandLine::All(const std::string& name) const
{
    auto it = m_all.find(name);
    return it == m_all.end() ? std::vector<std::string>() : it->second;
}

std::vector<std::string> CommandLine::Given() const
{
    std::vector<std::string> names;
    for (const auto& given : m_given) names.push_back(given.first);
    return names;
}

namespace {

// The number at the front of `text` and what follows it.
bool SplitNumber(const std::string& text, double* number, std::string* unit)
{
    if (text.empty()) return false;
    char* end = nullptr;
    *number = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || !std::isfinite(*number)) return false;
    *unit = end;
    return true;
}

}  // namespace

bool ParseDuration(const std::string& text, double* seconds)
{
    double number = 0;
    std::string unit;
    if (!SplitNumber(text, &number, &unit) || number < 0) return false;
    if (unit.empty() || unit == "s") *seconds = number;
    else if (unit == "ms") *seconds = number / 1000;
    else if (unit == "m" || unit == "min") *seconds = number * 60;
    else if (unit == "h") *seconds = number * 3600;
    else return false;
    return true;
}

bool ParseBitRate(const std::string& text, long* bitsPerSecond)
{
    double number = 0;
    std::string unit;
    if (!SplitNumber(text, &number, &unit)) return false;
    if (unit == "k" || unit == "K") number *= 1e3;
    else if (unit == "M") number *= 1e6;
    else if (!unit.empty()) return false;
    if (number < 1 || number > 1e8 || number != std::floor(number)) return false;
    *bitsPerSecond = static_cast<long>(number);
    return true;
}

bool ParseSpeed(const std::string& text, double* speed)
{
    double number = 0;
    std::string unit;
    if (!SplitNumber(text, &number, &unit) || !unit.empty() || number <= 0) return false;
    *speed = number;
    return true;
}

}  // namespace veldor::cli
