#include "UserPolicy.h"

#include <Commons/Exception.h>
#include <Logger.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace WrtDeviceApis {
namespace Commons {

namespace {

constexpr char kBlockKeyword[] = "block";

std::vector<std::string> splitFields(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> fields;
    std::string field;
    while (stream >> field) {
        fields.push_back(field);
    }
    return fields;
}

}  // namespace

UserPolicy UserPolicy::load(const std::string& path) {
    std::error_code error;
    std::filesystem::file_status status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        LoggerI("No user policy at " << path << "; nothing is blocked");
        return UserPolicy();
    }
    std::ifstream file(path);
    std::ostringstream text;
    if (status.type() != std::filesystem::file_type::regular || !file || !(text << file.rdbuf())) {
        ThrowMsg(PlatformException, "Can not read the user policy " << path);
    }
    return parse(text.str(), path);
}

UserPolicy UserPolicy::parse(const std::string& text, const std::string& source) {
    UserPolicy policy;
    std::istringstream stream(text);
    std::string line;
    for (int lineNumber = 1; std::getline(stream, line); ++lineNumber) {
        policy.parseLine(line, source, lineNumber);
    }
    return policy;
}

void UserPolicy::parseLine(const std::string& line, const std::string& source, int lineNumber) {
    std::vector<std::string> fields = splitFields(line);
    if (fields.empty() || fields.front().front() == '#') {
        return;
    }
    if (fields.size() != 3 || fields[0] != kBlockKeyword) {
        LoggerW(source << ":" << lineNumber << ": malformed policy line skipped: \"" << line
                       << "\" (expected \"block <appId> <privilege-uri>\")");
        return;
    }
    m_blocked.emplace(fields[1], fields[2]);
}

std::set<std::string> UserPolicy::blockedFor(const std::string& appId) const {
    std::set<std::string> privileges;
    for (const auto& [app, privilege] : m_blocked) {
        if (app == appId) {
            privileges.insert(privilege);
        }
    }
    return privileges;
}

}  // namespace Commons
}  // namespace WrtDeviceApis
