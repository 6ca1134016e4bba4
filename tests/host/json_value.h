// zqmonitor's JSON summary as the host tests read it, over nlohmann::json. Lookups of what is
// not there give a null value, and a value of another type reads as empty, so a missing or
// mistyped field fails the check that reads it rather than the test program.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zqhosttest {

class JsonValue {
public:
    JsonValue() = default;
    explicit JsonValue(nlohmann::json value) : m_value(std::move(value)) {}

    // Nothing, with the parser's reason in *error, for a text that is not one JSON value.
    static std::optional<JsonValue> Parse(const std::string& text, std::string* error) {
        try {
            return JsonValue(nlohmann::json::parse(text));
        } catch (const nlohmann::json::parse_error& e) {
            if (error != nullptr) *error = e.what();
            return std::nullopt;
        }
    }

    bool IsNull() const { return m_value.is_null(); }
    bool Bool() const { return m_value.is_boolean() && m_value.get<bool>(); }
    double Number() const { return m_value.is_number() ? m_value.get<double>() : 0.0; }
    std::string String() const { return m_value.is_string() ? m_value.get<std::string>() : std::string(); }
    size_t size() const { return m_value.is_array() || m_value.is_object() ? m_value.size() : 0; }
    bool Has(const std::string& key) const { return m_value.is_object() && m_value.contains(key); }
    JsonValue operator[](size_t index) const {
        return m_value.is_array() && index < m_value.size() ? JsonValue(m_value[index]) : JsonValue();
    }
    JsonValue operator[](const std::string& key) const { return Has(key) ? JsonValue(m_value[key]) : JsonValue(); }
    std::vector<JsonValue> Items() const {
        std::vector<JsonValue> items;
        if (m_value.is_array()) {
            for (const nlohmann::json& item : m_value) items.emplace_back(item);
        }
        return items;
    }

private:
    nlohmann::json m_value;
};

}  // namespace zqhosttest
