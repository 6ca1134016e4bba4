// A small JSON writer for the host's summary: objects, arrays, strings, numbers, booleans,
// written in order, indented two spaces per level. Keys and texts are UTF-8.
#pragma once

#include <string>
#include <vector>

namespace zqhost {

class JsonWriter {
public:
    JsonWriter& BeginObject();
    JsonWriter& EndObject();
    JsonWriter& BeginArray();
    JsonWriter& EndArray();
    // Inside an object, the key of the value that follows.
    JsonWriter& Key(const std::string& key);
    JsonWriter& String(const std::string& text);
    JsonWriter& Number(double value);  // not finite: null, which JSON has no number for
    JsonWriter& Integer(long long value);
    JsonWriter& Bool(bool value);
    JsonWriter& Null();

    const std::string& Text() const { return m_out; }

private:
    void BeforeValue();
    void NewLine();

    std::string m_out;
    std::vector<bool> m_first;  // per open container: nothing written in it yet
    bool m_afterKey = false;
};

// The JSON string literal of a UTF-8 text, quotes included.
std::string JsonQuote(const std::string& text);

}  // namespace zqhost
