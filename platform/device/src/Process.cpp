#include <kv-device/FileUtil.h>
#include <kv-device/Process.h>

#include <sstream>

namespace Kv {
namespace Device {

std::optional<std::string> processStatField(pid_t pid, int number) {
    const std::optional<std::string> stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    if (!stat || number < 3) {
        return std::nullopt;
    }
    // The command name, field 2, is in parentheses and may hold blanks.
    const std::string::size_type nameEnd = stat->rfind(')');
    if (nameEnd == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(stat->substr(nameEnd + 1));
    std::string field;
    for (int at = 3; at <= number && fields >> field; ++at) {
    }
    return fields ? std::optional<std::string>(field) : std::nullopt;
}

bool processRunning(pid_t pid) {
    if (pid <= 0) {
        return false;
    }
    const std::optional<std::string> state = processStatField(pid, 3);
    return state && *state != "Z" && *state != "X";
}

}  // namespace Device
}  // namespace Kv
