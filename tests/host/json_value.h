// A small JSON reader for checking zqmonitor's summary: the whole grammar, numbers as double,
// strings as UTF-8 (\u escapes of the basic plane). Lookups of what is not there give a null
// value, so a missing field fails the check that reads it rather than the test program.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zqhosttest {

class JsonValue {
public:
    enum class Type { Null, Bool, Number, String, Array, Object };

    // Nothing, with the place and reason in *error, for a text that is not one JSON value.
    static std::optional<JsonValue> Parse(const std::string& text, std::string* error);

    Type type() const { return m_type; }
    bool IsNull() const { return m_type == Type::Null; }
    bool Bool() const { return m_bool; }
    double Number() const { return m_number; }
    const std::string& String() const { return m_string; }
    size_t size() const { return m_type == Type::Array ? m_array.size() : m_type == Type::Object ? m_object.size() : 0; }
    const JsonValue& operator[](size_t index) const;
    const JsonValue& operator[](const std::string& key) const;
    bool Has(const std::string& key) const { return m_object.count(key) != 0; }
    const std::vector<JsonValue>& Items() const { return m_array; }

private:
    friend class JsonParser;
    Type m_type = Type::Null;
    bool m_bool = false;
    double m_number = 0.0;
    std::string m_string;
    std::vector<JsonValue> m_array;
    std::map<std::string, JsonValue> m_object;
};

}  // namespace zqhosttest
