#include "json_value.h"

#include <cstdlib>

namespace zqhosttest {

class JsonParser {
public:
    explicit JsonParser(const std::string& text) : m_text(text) {}

    bool Document(JsonValue& out, std::string* error) {
        const bool ok = Value(out) && (Blanks(), m_pos == m_text.size());
        if (!ok && error != nullptr) *error = "not JSON at offset " + std::to_string(m_pos);
        return ok;
    }

private:
    void Blanks() {
        while (m_pos < m_text.size() && (m_text[m_pos] == ' ' || m_text[m_pos] == '\n' || m_text[m_pos] == '\r' ||
                                         m_text[m_pos] == '\t'))
            ++m_pos;
    }
    bool Literal(const char* word) {
        const std::string w(word);
        if (m_text.compare(m_pos, w.size(), w) != 0) return false;
        m_pos += w.size();
        return true;
    }

    bool Value(JsonValue& out) {
        Blanks();
        if (m_pos >= m_text.size()) return false;
        const char c = m_text[m_pos];
        if (c == '{') return Object(out);
        if (c == '[') return Array(out);
        if (c == '"') {
            out.m_type = JsonValue::Type::String;
            return String(out.m_string);
        }
        if (Literal("true") || Literal("false")) {
            out.m_type = JsonValue::Type::Bool;
            out.m_bool = c == 't';
            return true;
        }
        if (Literal("null")) return true;
        const char* begin = m_text.c_str() + m_pos;
        char* end = nullptr;
        out.m_number = std::strtod(begin, &end);
        if (end == begin) return false;
        out.m_type = JsonValue::Type::Number;
        m_pos += static_cast<size_t>(end - begin);
        return true;
    }

    bool String(std::string& out) {
        ++m_pos;  // the opening quote
        while (m_pos < m_text.size() && m_text[m_pos] != '"') {
            char c = m_text[m_pos++];
            if (c != '\\') {
                out += c;
                continue;
            }
            if (m_pos >= m_text.size()) return false;
            c = m_text[m_pos++];
            switch (c) {
                case 'n': out += '\n'; break;
                case 't': out += '\t'; break;
                case 'r': out += '\r'; break;
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'u': {
                    if (m_pos + 4 > m_text.size()) return false;
                    const unsigned code = static_cast<unsigned>(std::strtoul(m_text.substr(m_pos, 4).c_str(), nullptr, 16));
                    m_pos += 4;
                    if (code < 0x80) {
                        out += static_cast<char>(code);
                    } else if (code < 0x800) {
                        out += static_cast<char>(0xC0 | (code >> 6));
                        out += static_cast<char>(0x80 | (code & 0x3F));
                    } else {
                        out += static_cast<char>(0xE0 | (code >> 12));
                        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                        out += static_cast<char>(0x80 | (code & 0x3F));
                    }
                    break;
                }
                default: out += c; break;  // \" \\ \/
            }
        }
        if (m_pos >= m_text.size()) return false;
        ++m_pos;  // the closing quote
        return true;
    }

    bool Array(JsonValue& out) {
        out.m_type = JsonValue::Type::Array;
        ++m_pos;
        Blanks();
        if (m_pos < m_text.size() && m_text[m_pos] == ']') return ++m_pos, true;
        for (;;) {
            JsonValue item;
            if (!Value(item)) return false;
            out.m_array.push_back(std::move(item));
            Blanks();
            if (m_pos >= m_text.size()) return false;
            if (m_text[m_pos] == ']') return ++m_pos, true;
            if (m_text[m_pos++] != ',') return false;
        }
    }

    bool Object(JsonValue& out) {
        out.m_type = JsonValue::Type::Object;
        ++m_pos;
        Blanks();
        if (m_pos < m_text.size() && m_text[m_pos] == '}') return ++m_pos, true;
        for (;;) {
            Blanks();
            std::string key;
            if (m_pos >= m_text.size() || m_text[m_pos] != '"' || !String(key)) return false;
            Blanks();
            if (m_pos >= m_text.size() || m_text[m_pos++] != ':') return false;
            JsonValue value;
            if (!Value(value)) return false;
            out.m_object[key] = std::move(value);
            Blanks();
            if (m_pos >= m_text.size()) return false;
            if (m_text[m_pos] == '}') return ++m_pos, true;
            if (m_text[m_pos++] != ',') return false;
        }
    }

    const std::string& m_text;
    size_t m_pos = 0;
};

namespace {
const JsonValue& Missing() {
    static const JsonValue none;
    return none;
}
}  // namespace

std::optional<JsonValue> JsonValue::Parse(const std::string& text, std::string* error) {
    JsonValue value;
    if (!JsonParser(text).Document(value, error)) return std::nullopt;
    return value;
}

const JsonValue& JsonValue::operator[](size_t index) const {
    return m_type == Type::Array && index < m_array.size() ? m_array[index] : Missing();
}

const JsonValue& JsonValue::operator[](const std::string& key) const {
    if (m_type != Type::Object) return Missing();
    const auto it = m_object.find(key);
    return it == m_object.end() ? Missing() : it->second;
}

}  // namespace zqhosttest
