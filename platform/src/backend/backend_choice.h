// A process-wide choice between implementations of one interface (the audio backend, the
// bridges): made by a Select call, or else from an environment variable the first time it is
// needed. A Select made meanwhile wins over the environment; a later Select replaces the choice
// for what is created afterwards.
#pragma once

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace zqplatform {

template <class Choice>
class BackendChoice {
public:
    // The choice a name stands for; nothing, and the reason in *error, for a name not offered.
    using Parser = std::optional<Choice> (*)(std::string_view name, std::string* error);

    BackendChoice(const char* variable, Choice fallback, const char* fallbackDescription, Parser parse)
        : m_variable(variable), m_fallback(fallback), m_fallbackDescription(fallbackDescription), m_parse(parse) {}

    Choice Get() {
        int value = m_value.load(std::memory_order_acquire);
        if (value != kUnchosen) return static_cast<Choice>(value);
        Choice fromEnvironment = m_fallback;
        const char* name = std::getenv(m_variable);
        if (name != nullptr && name[0] != '\0') {
            std::string why;
            if (const std::optional<Choice> parsed = m_parse(name, &why)) {
                fromEnvironment = *parsed;
            } else {
                std::fprintf(stderr, "zqplatform: %s: %s; using %s\n", m_variable, why.c_str(), m_fallbackDescription);
            }
        }
        m_value.compare_exchange_strong(value, static_cast<int>(fromEnvironment), std::memory_order_acq_rel);
        return static_cast<Choice>(m_value.load(std::memory_order_acquire));
    }

    bool Select(std::string_view name, std::string* error) {
        const std::optional<Choice> parsed = m_parse(name, error);
        if (!parsed) return false;
        m_value.store(static_cast<int>(*parsed), std::memory_order_release);
        return true;
    }

private:
    static constexpr int kUnchosen = -1;
    std::atomic<int> m_value{kUnchosen};
    const char* m_variable;
    Choice m_fallback;
    const char* m_fallbackDescription;
    Parser m_parse;
};

}  // namespace zqplatform
