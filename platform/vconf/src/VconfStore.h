// The vconf store of the current device: one file per key in
// <device root>/vconf. A file's name is the key with every byte other than
// letters, digits, "_", "-" and a non-leading "." written as "%XX", so keys
// with "/" fit in one folder and names beginning with "." stay free for
// temporary files. Its content is the type word on the first line ("int",
// "bool", "double", "string") and the value after it.
#ifndef KV_PLATFORM_VCONF_STORE_H
#define KV_PLATFORM_VCONF_STORE_H

#include <optional>
#include <string>

namespace Kv {
namespace Vconf {

struct Value {
    int type = 0;  // a VCONF_TYPE_* value
    int number = 0;
    double real = 0;
    std::string text;
};

// The file name of `key`; throws std::invalid_argument for an empty key or
// one too long for a file name.
std::string fileNameOf(const std::string& key);
// The key of a store file's name; nothing for temporary and foreign files.
std::optional<std::string> keyOfFileName(const std::string& name);

// The store folder of the current device.
std::string storeFolder();

// Writes the key atomically; throws std::runtime_error or std::invalid_argument.
void store(const std::string& key, const Value& value);
// The key's value, or nothing when it is absent or unreadable.
std::optional<Value> load(const std::string& key);
// Removes the key; false when it was absent.
bool erase(const std::string& key);

}  // namespace Vconf
}  // namespace Kv

#endif
