#include "RequestPolicy.h"

#include <glib.h>

#include <filesystem>
#include <memory>
#include <system_error>

namespace Kv {
namespace Page {

namespace {

namespace fs = std::filesystem;

std::string canonical(const std::string& path) {
    std::error_code error;
    const fs::path result = fs::weakly_canonical(fs::path(path), error);
    return error ? std::string() : result.string();
}

struct UriDeleter {
    void operator()(GUri* uri) const { g_uri_unref(uri); }
};

}  // namespace

RequestPolicy::RequestPolicy(const std::string& appRoot) : m_root(canonical(appRoot)) {
    if (m_root.empty() || m_root.back() != '/') {
        m_root += '/';
    }
}

bool RequestPolicy::allows(const std::string& uri) const {
    std::unique_ptr<GUri, UriDeleter> parsed(g_uri_parse(uri.c_str(), G_URI_FLAGS_NONE, nullptr));
    if (!parsed) {
        return false;
    }
    const std::string scheme = g_uri_get_scheme(parsed.get());
    if (scheme == "about" || scheme == "data" || scheme == "blob") {
        return true;
    }
    const char* host = g_uri_get_host(parsed.get());
    if (scheme != "file" || (host && *host && std::string(host) != "localhost")) {
        return false;
    }
    std::unique_ptr<char, decltype(&g_free)> path(
        g_uri_unescape_string(g_uri_get_path(parsed.get()), nullptr), g_free);
    return path && allowsFile(path.get());
}

bool RequestPolicy::allowsFile(const std::string& path) const {
    const std::string resolved = canonical(path);
    return !resolved.empty() && resolved.rfind(m_root, 0) == 0;
}

}  // namespace Page
}  // namespace Kv
