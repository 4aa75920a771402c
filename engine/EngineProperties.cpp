#include "EngineProperties.h"

#include <cerrno>
#include <cstdlib>

#include "EngineVersion.h"

namespace veldor {

EngineProperties::EngineProperties()
{
    Define("Engine.shutdownTimeout", std::int64_t(10000000),
           "Microseconds that a component's threads get to end after its death; a negative value means 10 seconds");
    Define("Engine.sequentialStart", false, "Start components one after the other, each waiting for its Birth");
    Define("Engine.version", std::string(kEngineVersion), "Version of the engine");
}

void EngineProperties::Define(const std::string& name, bool value, const std::string& description)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_values[name] = Value{Bool, value, 0, 0.0, std::string(), description};
}

void EngineProperties::Define(const std::string& name, std::int64_t value, const std::string& description)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_values[name] = Value{Integer, false, value, 0.0, std::string(), description};
}

void EngineProperties::Define(const std::string& name, double value, const std::string& description)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_values[name] = Value{Float, false, 0, value, std::string(), description};
}

void EngineProperties::Define(const std::string& name, const std::string& value, const std::string& description)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_values[name] = Value{String, false, 0, 0.0, value, description};
}

bool EngineProperties::Has(const std::string& name) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_values.count(name) != 0;
}

bool EngineProperties::Find(const std::string& name, Type type, Value* out) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_values.find(name);
    if (it == m_values.end() || it->second.type != type) return false;
    *out = it->second;
    return true;
}

bool EngineProperties::GetBool(const std::string& name, bool* found) const
{
    Value v;
    bool ok = Find(name, Bool, &v);
    if (found) *found = ok;
    return ok && v.b;
}

std::int64_t EngineProperties::GetInteger(const std::string& name, bool* found) const
{
    Value v;
    bool ok = Find(name, Integer, &v);
    if (found) *found = ok;
    return ok ? v.i : 0;
}

double EngineProperties::GetFloat(const std::string& name, bool* found) const
{
    Value v;
    bool ok = Find(name, Float, &v);
    if (found) *found = ok;
    return ok ? v.f : 0.0;
}

std::string EngineProperties::GetString(const std::string& name, bool* found) const
{
    Value v;
    bool ok = Find(name, String, &v);
    if (found) *found = ok;
    return ok ? v.s : std::string();
}

bool EngineProperties::SetFromText(const std::string& name, const std::string& text, std::string* error)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_values.find(name);
    if (it == m_values.end()) {
        if (error) *error = "unknown engine property \"" + name + "\"";
        return false;
    }
    Value& v = it->second;
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    switch (v.type) {
    case Bool:
        if (text == "true" || text == "1") {
            v.b = true;
        } else if (text == "false" || text == "0") {
            v.b = false;
        } else {
            if (error) *error = "\"" + text + "\" is not a boolean (true or false) for " + name;
            return false;
        }
        return true;
    case Integer: {
        long long i = std::strtoll(begin, &end, 10);
        if (text.empty() || *end || errno == ERANGE) {
            if (error) *error = "\"" + text + "\" is not an integer for " + name;
            return false;
        }
        v.i = i;
        return true;
    }
    case Float: {
        double f = std::strtod(begin, &end);
        if (text.empty() || *end || errno == ERANGE) {
            if (error) *error = "\"" + text + "\" is not a number for " + name;
            return false;
        }
        v.f = f;
        return true;
    }
    case String:
        v.s = text;
        return true;
    }
    return false;
}

bool EngineProperties::SetBool(const std::string& name, bool value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_values.find(name);
    if (it == m_values.end() || it->second.type != Bool) return false;
    it->second.b = value;
    return true;
}

bool EngineProperties::SetInteger(const std::string& name, std::int64_t value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_values.find(name);
    if (it == m_values.end() || it->second.type != Integer) return false;
    it->second.i = value;
    return true;
}

bool EngineProperties::SetFloat(const std::string& name, double value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_values.find(name);
    if (it == m_values.end() || it->second.type != Float) return false;
    it->second.f = value;
    return true;
}

bool EngineProperties::SetString(const std::string& name, const std::string& value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_values.find(name);
    if (it == m_values.end() || it->second.type != String) return false;
    it->second.s = value;
    return true;
}

std::vector<std::string> EngineProperties::Names() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> names;
    for (const auto& entry : m_values) names.push_back(entry.first);
    return names;
}

bool EngineProperties::Describe(const std::string& name, Value* out) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_values.find(name);
    if (it == m_values.end()) return false;
    *out = it->second;
    return true;
}

}  // namespace veldor
