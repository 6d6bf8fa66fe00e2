// The user's privilege policy of a device: which privileges the user has
// blocked for which app. Its file has one entry a line,
//   block <appId> <privilege-uri>
// with '#' starting a comment line and blank lines ignored. Fields are
// separated by blanks or tabs. Any other line is logged as a warning,
// naming the file and line, and skipped.
#ifndef KV_PLATFORM_WRT_ACCESS_USER_POLICY_H
#define KV_PLATFORM_WRT_ACCESS_USER_POLICY_H

#include <set>
#include <string>
#include <utility>

namespace WrtDeviceApis {
namespace Commons {

class UserPolicy {
public:
    // Reads the policy file at `path`. A file that does not exist is an
    // empty policy; one that exists but cannot be read throws
    // PlatformException.
    static UserPolicy load(const std::string& path);

    // Reads policy text; `source` names it in warnings.
    static UserPolicy parse(const std::string& text, const std::string& source);

    // The privileges blocked for `appId`.
    std::set<std::string> blockedFor(const std::string& appId) const;

private:
    void parseLine(const std::string& line, const std::string& source, int lineNumber);

    std::set<std::pair<std::string, std::string>> m_blocked;  // (app id, privilege)
};

}  // namespace Commons
}  // namespace WrtDeviceApis

#endif
