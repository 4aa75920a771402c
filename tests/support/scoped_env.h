// Sets or clears an environment variable for the life of the object, and
// gives it back as it was however the test ends.
#ifndef VELDOR_TEST_SCOPED_ENV_H
#define VELDOR_TEST_SCOPED_ENV_H

#include <cstdlib>
#include <string>

namespace veldor_test {

class ScopedEnv {
public:
    // `value` null: the variable is cleared.
    ScopedEnv(const char* name, const char* value) : m_name(name)
    {
        const char* old = std::getenv(name);
        m_had = old != nullptr;
        if (old) m_old = old;
        if (value)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }
    ~ScopedEnv()
    {
        if (m_had)
            setenv(m_name.c_str(), m_old.c_str(), 1);
        else
            unsetenv(m_name.c_str());
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string m_name, m_old;
    bool m_had;
};

}  // namespace veldor_test

#endif
