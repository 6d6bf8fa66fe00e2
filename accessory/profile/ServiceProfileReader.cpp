#include <kv-accessory/ServiceProfileReader.h>

#include <libxml/parser.h>
#include <sys/stat.h>

#include <cstring>
#include <string_view>

#include "ProfileBuilder.h"

namespace Kv {
namespace Accessory {

namespace {

using ProfileParsing::ProfileBuilder;

// The state of one reading. Once a callback has failed, the reading counts as
// broken there: later elements are ignored, so that the profiles kept are
// those closed before the failure.
struct ReadState {
    ProfileBuilder builder;
    bool failed = false;
};

std::string_view elementName(const xmlChar* name) {
    return std::string_view(reinterpret_cast<const char*>(name));
}

// SAX start-element callback. The parser is C, so no exception may leave it.
void onStartElement(void* userData, const xmlChar* name, const xmlChar** attributes) {
    auto& state = *static_cast<ReadState*>(userData);
    if (state.failed) {
        return;
    }
    try {
        state.builder.startElement(elementName(name), attributes);
    } catch (...) {
        state.failed = true;
    }
}

// SAX end-element callback. The parser is C, so no exception may leave it.
void onEndElement(void* userData, const xmlChar* name) {
    auto& state = *static_cast<ReadState*>(userData);
    if (state.failed) {
        return;
    }
    try {
        state.builder.endElement(elementName(name));
    } catch (...) {
        state.failed = true;
    }
}

}  // namespace

ServiceProfileFile readServiceProfileFile(const std::string& path) noexcept {
    ServiceProfileFile file;
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 ||
        static_cast<std::uintmax_t>(info.st_size) > kMaxServiceProfileFileSize) {
        return file;  // missing, or too large to be a profile: nothing is read
    }
    // Only the SAX1 element callbacks: text, comments and everything else in
    // the file are skipped.
    xmlSAXHandler handler;
    std::memset(&handler, 0, sizeof(handler));
    handler.startElement = onStartElement;
    handler.endElement = onEndElement;

    ReadState state;
    const int parsed = xmlSAXUserParseFile(&handler, &state, path.c_str());

    file.profiles = state.builder.takeProfiles();
    file.complete = parsed == 0 && !state.failed;
    return file;
}

}  // namespace Accessory
}  // namespace Kv
