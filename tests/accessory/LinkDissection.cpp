#include "LinkDissection.h"

#include <gtest/gtest.h>

#include <sstream>

#include "ChildProcess.h"
#include "PacketCapture.h"

namespace KvTest {

namespace {

// tshark's own words on stderr that are no failure.
bool onlyTheRootWarning(const std::string& errors) {
    std::istringstream lines(errors);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.find("Running as user \"root\"") == std::string::npos) {
            return false;
        }
    }
    return true;
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        parts.push_back(part);
    }
    if (!text.empty() && text.back() == separator) {
        parts.emplace_back();
    }
    return parts;
}

}  // namespace

std::string wireField(const std::string& message, const std::string& field) {
    return "pbf.kv.accessory.wire." + message + "." + field;
}

std::string hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0f];
    }
    return text;
}

LinkDissection::LinkDissection(std::string capture, unsigned short port, std::string keyLog)
    : m_capture(std::move(capture)), m_port(port), m_keyLog(std::move(keyLog)) {}

std::vector<std::string> LinkDissection::command(const std::vector<std::string>& fields) const {
    const std::string dissector = KV_LINK_DISSECTOR;
    const std::string protocolFolder = KV_PROTOCOL_FOLDER;
    std::vector<std::string> command{
        programOnPath("tshark"),
        "-r",
        m_capture,
        "-X",
        "lua_script:" + dissector,
        "-o",
        "kvlink.port:" + std::to_string(m_port),
        "-o",
        "tls.keylog_file:" + m_keyLog,
        "-o",
        "uat:protobuf_search_paths:\"" + protocolFolder + "\",\"TRUE\"",
        "-o",
        "protobuf.preload_protos:TRUE",
        "-o",
        "protobuf.pbf_as_hf:TRUE",
        "-Y",
        fields.front(),
        "-T",
        "fields",
        "-E",
        "occurrence=a",
        "-E",
        "aggregator=,"};
    for (const std::string& field : fields) {
        command.insert(command.end(), {"-e", field});
    }
    return command;
}

std::vector<std::vector<std::vector<std::string>>> LinkDissection::rows(
    const std::vector<std::string>& fields) const {
    if (programOnPath("tshark").empty()) {
        ADD_FAILURE() << "tshark is not installed (./kv setup installs it)";
        return {};
    }
    const ProcessResult result = runProcess(command(fields));
    EXPECT_EQ(result.exitCode, 0) << "tshark: " << result.err;
    EXPECT_TRUE(onlyTheRootWarning(result.err)) << "tshark: " << result.err;
    if (result.exitCode != 0) {
        return {};
    }
    std::vector<std::vector<std::vector<std::string>>> rows;
    for (const std::string& line : split(result.out, '\n')) {
        if (line.empty()) {
            continue;
        }
        std::vector<std::vector<std::string>> row;
        for (const std::string& column : split(line, '\t')) {
            row.push_back(split(column, ','));
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<std::string> LinkDissection::values(const std::string& field) const {
    std::vector<std::string> values;
    for (const auto& row : rows({field})) {
        values.insert(values.end(), row.front().begin(), row.front().end());
    }
    return values;
}

}  // namespace KvTest
