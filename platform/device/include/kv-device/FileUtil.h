// Small file helpers shared by the device platform libraries.
#ifndef KV_PLATFORM_DEVICE_FILE_UTIL_H
#define KV_PLATFORM_DEVICE_FILE_UTIL_H

#include <optional>
#include <string>

namespace Kv {
namespace Device {

// Replaces the file `path` with `content` atomically: the content is written
// to a temporary file in the same folder, which is then renamed over `path`.
// Readers in any process see either the old or the new content, never a
// mix. Throws std::runtime_error naming the file and the reason.
void writeFileAtomically(const std::string& path, const std::string& content);

// The whole content of `path`, or nothing when it can't be read.
std::optional<std::string> readFile(const std::string& path);

// The system's text for an errno value.
std::string errorText(int error);

}  // namespace Device
}  // namespace Kv

#endif
