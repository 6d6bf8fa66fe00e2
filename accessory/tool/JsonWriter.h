// Writes one compact JSON value: objects, arrays, strings, integers and
// booleans, with the commas and the escapes in place.
#ifndef KV_ACCESSORY_TOOL_JSON_WRITER_H
#define KV_ACCESSORY_TOOL_JSON_WRITER_H

#include <concepts>
#include <string>
#include <string_view>
#include <vector>

namespace Kv {
namespace Accessory {

class JsonWriter {
public:
    JsonWriter& beginObject() { return open('{'); }
    JsonWriter& endObject() { return close('}'); }
    JsonWriter& beginArray() { return open('['); }
    JsonWriter& endArray() { return close(']'); }
    // The name of the object's next member.
    JsonWriter& key(std::string_view name);

    JsonWriter& value(std::string_view text);
    JsonWriter& value(const char* text) { return value(std::string_view(text)); }
    JsonWriter& value(const std::string& text) { return value(std::string_view(text)); }
    JsonWriter& value(bool flag) { return raw(flag ? "true" : "false"); }
    JsonWriter& value(std::integral auto number) { return raw(std::to_string(number)); }

    template <typename Value>
    JsonWriter& member(std::string_view name, const Value& value) {
        return key(name).value(value);
    }

    const std::string& text() const { return m_text; }

private:
    JsonWriter& open(char bracket);
    JsonWriter& close(char bracket);
    JsonWriter& raw(std::string_view text);
    // The comma before a value, unless it is the first of its container or
    // follows its key.
    void separate();

    std::string m_text;
    std::vector<bool> m_empty;  // per open container: nothing in it yet
    bool m_afterKey = false;
};

}  // namespace Accessory
}  // namespace Kv

#endif
