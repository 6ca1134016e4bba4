#include "json_writer.h"

#include <cmath>
#include <cstdio>

namespace zqhost {

std::string JsonQuote(const std::string& text) {
    std::string out = "\"";
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04X", c);
                    out += escaped;
                } else {
                    out += ch;  // UTF-8 bytes pass through
                }
        }
    }
    return out + "\"";
}

void JsonWriter::NewLine() {
    m_out += '\n';
    m_out.append(m_first.size() * 2, ' ');
}

void JsonWriter::BeforeValue() {
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (m_first.empty()) return;
    if (!m_first.back()) m_out += ',';
    m_first.back() = false;
    NewLine();
}

JsonWriter& JsonWriter::BeginObject() {
    BeforeValue();
    m_out += '{';
    m_first.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::EndObject() {
    const bool empty = m_first.back();
    m_first.pop_back();
    if (!empty) NewLine();
    m_out += '}';
    return *this;
}

JsonWriter& JsonWriter::BeginArray() {
    BeforeValue();
    m_out += '[';
    m_first.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::EndArray() {
    const bool empty = m_first.back();
    m_first.pop_back();
    if (!empty) NewLine();
    m_out += ']';
    return *this;
}

JsonWriter& JsonWriter::Key(const std::string& key) {
    BeforeValue();
    m_out += JsonQuote(key);
    m_out += ": ";
    m_afterKey = true;
    return *this;
}

JsonWriter& JsonWriter::String(const std::string& text) {
    BeforeValue();
    m_out += JsonQuote(text);
    return *this;
}

JsonWriter& JsonWriter::Number(double value) {
    if (!std::isfinite(value)) return Null();
    BeforeValue();
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    m_out += text;
    return *this;
}

JsonWriter& JsonWriter::Integer(long long value) {
    BeforeValue();
    m_out += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
    BeforeValue();
    m_out += value ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::Null() {
    BeforeValue();
    m_out += "null";
    return *this;
}

}  // namespace zqhost
