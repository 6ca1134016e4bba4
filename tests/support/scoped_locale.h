// Sets the C library's locale (all categories) for the life of the object and restores the one
// before. A host may run in any locale, or never set one (then it is "C").
#pragma once

#include <clocale>
#include <string>

namespace zqtest {

// The locales the library must read texts alike in: the default one and a UTF-8 one.
inline constexpr const char* kHostLocales[] = {"C", "C.UTF-8"};

class ScopedLocale {
public:
    explicit ScopedLocale(const char* name) : m_old(std::setlocale(LC_ALL, nullptr)) {
        m_set = std::setlocale(LC_ALL, name) != nullptr;
    }
    ~ScopedLocale() { std::setlocale(LC_ALL, m_old.c_str()); }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

    // False when the system does not have the locale.
    bool Set() const { return m_set; }

private:
    std::string m_old;
    bool m_set = false;
};

}  // namespace zqtest
