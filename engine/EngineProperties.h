// The engine's own settings, by full name ("Engine.shutdownTimeout"), as the
// user sets them and the package reads them through the global property
// look-ups.
#ifndef VELDOR_ENGINE_ENGINE_PROPERTIES_H
#define VELDOR_ENGINE_ENGINE_PROPERTIES_H

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace veldor {

class EngineProperties {
public:
    enum Type { Bool, Integer, Float, String };

    struct Value {
        Type type;
        bool b;
        std::int64_t i;
        double f;
        std::string s;
        std::string description;
    };

    // Defines "Engine.shutdownTimeout" (10000000 microseconds),
    // "Engine.sequentialStart" (false) and "Engine.version".
    EngineProperties();

    void Define(const std::string& name, bool value, const std::string& description);
    void Define(const std::string& name, std::int64_t value, const std::string& description);
    void Define(const std::string& name, double value, const std::string& description);
    void Define(const std::string& name, const std::string& value, const std::string& description);

    bool Has(const std::string& name) const;
    // Typed reads; false in `*found` (when given) for an unknown name or
    // another type.
    bool GetBool(const std::string& name, bool* found) const;
    std::int64_t GetInteger(const std::string& name, bool* found) const;
    double GetFloat(const std::string& name, bool* found) const;
    std::string GetString(const std::string& name, bool* found) const;

    // Sets a defined property from text ("true"/"false"/"1"/"0", a decimal,
    // a number, any text). False with a reason in `error` otherwise.
    bool SetFromText(const std::string& name, const std::string& text, std::string* error);
    bool SetBool(const std::string& name, bool value);
    bool SetInteger(const std::string& name, std::int64_t value);
    bool SetFloat(const std::string& name, double value);
    bool SetString(const std::string& name, const std::string& value);

    std::vector<std::string> Names() const;
    bool Describe(const std::string& name, Value* out) const;

private:
    bool Find(const std::string& name, Type type, Value* out) const;

    mutable std::mutex m_mutex;
    std::map<std::string, Value> m_values;
};

}  // namespace veldor

#endif
