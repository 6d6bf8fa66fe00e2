#include "VconfStore.h"

#include <vconf.h>

#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace Kv {
namespace Vconf {

namespace {

constexpr size_t kMaxFileName = 255;
constexpr char kHexDigits[] = "0123456789ABCDEF";

bool keptAsIs(unsigned char c, bool leading) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '_' || c == '-';
    return plain || (c == '.' && !leading);
}

int hexValue(char c) {
    const char* found = std::char_traits<char>::find(kHexDigits, 16, c);
    return found != nullptr ? static_cast<int>(found - kHexDigits) : -1;
}

const char* typeWord(int type) {
    switch (type) {
        case VCONF_TYPE_INT:
            return "int";
        case VCONF_TYPE_BOOL:
            return "bool";
        case VCONF_TYPE_DOUBLE:
            return "double";
        case VCONF_TYPE_STRING:
            return "string";
        default:
            throw std::invalid_argument("unknown vconf type " + std::to_string(type));
    }
}

std::string encode(const Value& value) {
    std::string content = std::string(typeWord(value.type)) + "\n";
    if (value.type == VCONF_TYPE_STRING) {
        return content + value.text;
    }
    if (value.type == VCONF_TYPE_DOUBLE) {
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%.17g", value.real);
        return content + buffer + "\n";
    }
    return content + std::to_string(value.number) + "\n";
}

std::optional<int> parseInt(const std::string& text) {
    errno = 0;
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || end == text.c_str() || (*end != '\n' && *end != '\0') ||
        number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max()) {
        return std::nullopt;
    }
    return static_cast<int>(number);
}

std::optional<Value> decodeNumber(int type, const std::string& body) {
    Value value;
    value.type = type;
    if (type == VCONF_TYPE_DOUBLE) {
        char* end = nullptr;
        value.real = std::strtod(body.c_str(), &end);
        return end != body.c_str() ? std::optional<Value>(value) : std::nullopt;
    }
    const std::optional<int> number = parseInt(body);
    if (!number || (type == VCONF_TYPE_BOOL && *number != 0 && *number != 1)) {
        return std::nullopt;
    }
    value.number = *number;
    return value;
}

std::optional<Value> decode(const std::string& content) {
    const std::string::size_type newline = content.find('\n');
    if (newline == std::string::npos) {
        return std::nullopt;
    }
    const std::string word = content.substr(0, newline);
    const std::string body = content.substr(newline + 1);
    if (word == "string") {
        Value value;
        value.type = VCONF_TYPE_STRING;
        value.text = body;
        return value;
    }
    for (const int type : {VCONF_TYPE_INT, VCONF_TYPE_BOOL, VCONF_TYPE_DOUBLE}) {
        if (word == typeWord(type)) {
            return decodeNumber(type, body);
        }
    }
    return std::nullopt;
}

std::string pathOf(const std::string& key) { return storeFolder() + "/" + fileNameOf(key); }

}  // namespace

std::string fileNameOf(const std::string& key) {
    if (key.empty()) {
        throw std::invalid_argument("empty vconf key");
    }
    std::string name;
    for (size_t i = 0; i < key.size(); ++i) {
        const auto c = static_cast<unsigned char>(key[i]);
        if (keptAsIs(c, i == 0)) {
            name += static_cast<char>(c);
        } else {
            name += {'%', kHexDigits[c >> 4], kHexDigits[c & 15]};
        }
    }
    if (name.size() > kMaxFileName) {
        throw std::invalid_argument("vconf key too long: " + key);
    }
    return name;
}

std::optional<std::string> keyOfFileName(const std::string& name) {
    if (name.empty() || name[0] == '.') {
        return std::nullopt;
    }
    std::string key;
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] != '%') {
            key += name[i];
            continue;
        }
        const int high = i + 2 < name.size() ? hexValue(name[i + 1]) : -1;
        const int low = high >= 0 ? hexValue(name[i + 2]) : -1;
        if (low < 0) {
            return std::nullopt;
        }
        key += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return key;
}

std::string storeFolder() { return Device::vconfDir(); }

void store(const std::string& key, const Value& value) {
    Device::writeFileAtomically(pathOf(key), encode(value));
}

std::optional<Value> load(const std::string& key) {
    const std::optional<std::string> content = Device::readFile(pathOf(key));
    return content ? decode(*content) : std::nullopt;
}

bool erase(const std::string& key) { return std::remove(pathOf(key).c_str()) == 0; }

}  // namespace Vconf
}  // namespace Kv
