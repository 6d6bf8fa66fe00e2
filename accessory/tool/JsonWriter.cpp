#include "JsonWriter.h"

#include <cstdio>

namespace Kv {
namespace Accessory {

namespace {

void appendEscaped(std::string& out, std::string_view text) {
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
            out += escaped;
        } else {
            out += c;
        }
    }
}

}  // namespace

JsonWriter& JsonWriter::key(std::string_view name) {
    separate();
    m_text += '"';
    appendEscaped(m_text, name);
    m_text += "\":";
    m_afterKey = true;
    return *this;
}

JsonWriter& JsonWriter::value(std::string_view text) {
    separate();
    m_text += '"';
    appendEscaped(m_text, text);
    m_text += '"';
    return *this;
}

JsonWriter& JsonWriter::open(char bracket) {
    separate();
    m_text += bracket;
    m_empty.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
    m_text += bracket;
    m_empty.pop_back();
    return *this;
}

JsonWriter& JsonWriter::raw(std::string_view text) {
    separate();
    m_text += text;
    return *this;
}

void JsonWriter::separate() {
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (!m_empty.empty() && !m_empty.back()) {
        m_text += ',';
    }
    if (!m_empty.empty()) {
        m_empty.back() = false;
    }
}

}  // namespace Accessory
}  // namespace Kv
