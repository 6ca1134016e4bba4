// config.xml into product entries. Every child node of <config> makes an entry, whatever its
// name or kind: with pugixml's default options text and CDATA directly inside <config> are
// nodes too, and give entries with empty texts and versions 0.
#include "devices/ProductTable.h"

#include <climits>
#include <string>

#include <pugixml.hpp>

namespace {

CStringW AttributeText(const pugi::xml_node& node, const char* name) {
    // pugixml keeps the document as UTF-8 whatever its encoding was; as_wide decodes it.
    const std::wstring text = pugi::as_wide(node.attribute(name).as_string(""));
    const size_t length = text.size() < static_cast<size_t>(INT_MAX) ? text.size() : static_cast<size_t>(INT_MAX);
    return CStringW(text.c_str(), static_cast<int>(length));
}

// as_int: blanks, sign, 0x for hexadecimal, clamped to 32 bits; the low 8 bits are kept, so
// 300 gives 44 and -1 gives 255.
unsigned char AttributeByte(const pugi::xml_node& node, const char* name) {
    return static_cast<unsigned char>(static_cast<unsigned int>(node.attribute(name).as_int(0)) & 0xFFu);
}

void AppendEntries(const pugi::xml_document& doc, std::vector<_ZQ_CONFIG>& table) {
    const pugi::xml_node config = doc.child("config");
    if (config.empty()) return;
    for (pugi::xml_node node = config.first_child(); !node.empty(); node = node.next_sibling()) {
        _ZQ_CONFIG entry;
        entry.strDeviceName = AttributeText(node, "device_name");
        entry.strFriendlyName = AttributeText(node, "friendly_name");
        entry.nApi = AttributeByte(node, "api");
        entry.nFw = AttributeByte(node, "fw");
        entry.strEditor = AttributeText(node, "editor");
        table.push_back(entry);
    }
}

}  // namespace

bool ReadProductTable(const wchar_t* pszPath, std::vector<_ZQ_CONFIG>& table) {
    if (pszPath == nullptr || pszPath[0] == L'\0') return false;
    pugi::xml_document doc;
    const pugi::xml_parse_result result = doc.load_file(pszPath, pugi::parse_default, pugi::encoding_auto);
    if (result.status != pugi::status_ok) {
        // The table stays as it was; the reason goes to the debug output, where the host's log
        // has no line for it.
        CStringW text;
        text.Format(L"CoreAudio: %s not read: %S (at byte %d)", pszPath, result.description(),
                    static_cast<int>(result.offset));
        OutputDebugStringW(text);
        return false;
    }
    AppendEntries(doc, table);
    return true;
}

bool ParseProductTable(const void* pData, size_t nSize, std::vector<_ZQ_CONFIG>& table) {
    pugi::xml_document doc;
    if (doc.load_buffer(pData, nSize, pugi::parse_default, pugi::encoding_auto).status != pugi::status_ok) {
        return false;
    }
    AppendEntries(doc, table);
    return true;
}
