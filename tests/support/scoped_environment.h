// Sets an environment variable for the life of the object and restores what was there before.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace zqtest {

class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : m_name(name) {
        if (const char* old = std::getenv(name)) m_old = old;
        setenv(name, value, 1);
    }
    ~ScopedEnvironment() {
        if (m_old)
            setenv(m_name.c_str(), m_old->c_str(), 1);
        else
            unsetenv(m_name.c_str());
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_old;
};

}  // namespace zqtest
