// Reading an app's config.xml (the format is described in README.md).
#include <kv-device/AppRegistry.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <unistd.h>
#include <cctype>
#include <cerrno>
#include <memory>
#include <stdexcept>

namespace Kv {
namespace Device {

namespace {

constexpr size_t kMaxPackageLength = 32;

struct DocumentDeleter {
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
using Document = std::unique_ptr<xmlDoc, DocumentDeleter>;

struct ContextDeleter {
    void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

bool isNamed(const xmlNode* node, const char* name) {
    return node->type == XML_ELEMENT_NODE && xmlStrEqual(node->name, BAD_CAST name);
}

// The attribute's value, or nothing when the element lacks it.
std::optional<std::string> attribute(xmlNode* node, const char* name) {
    xmlChar* value = xmlGetProp(node, BAD_CAST name);
    if (value == nullptr) {
        return std::nullopt;
    }
    std::string text(reinterpret_cast<const char*>(value));
    xmlFree(value);
    return text;
}

std::string textContent(xmlNode* node) {
    xmlChar* content = xmlNodeGetContent(node);
    std::string text = content != nullptr ? reinterpret_cast<const char*>(content) : "";
    xmlFree(content);
    return trim(text);
}

bool isPackageName(const std::string& package) {
    if (package.empty() || package.size() > kMaxPackageLength) {
        return false;
    }
    for (const unsigned char c : package) {
        if (!std::isalnum(c)) {
            return false;
        }
    }
    return true;
}

bool isAppIdOf(const std::string& appId, const std::string& package) {
    const std::string prefix = package + ".";
    if (appId.size() <= prefix.size() || appId.compare(0, prefix.size(), prefix) != 0) {
        return false;
    }
    for (const unsigned char c : appId.substr(prefix.size())) {
        if (!std::isalnum(c) && c != '_' && c != '-' && c != '.') {
            return false;
        }
    }
    return true;
}

bool isRelativeInside(const std::string& path) {
    if (path.front() == '/') {
        return false;
    }
    size_t start = 0;
    while (start <= path.size()) {
        const size_t end = std::min(path.find('/', start), path.size());
        if (path.compare(start, end - start, "..") == 0) {
            return false;
        }
        start = end + 1;
    }
    return true;
}

// Reads the elements under <widget> into an AppInfo and checks it.
class AppConfigReader {
public:
    explicit AppConfigReader(const std::string& path) : m_path(path) {}

    AppInfo read(xmlNode* widget) {
        if (!isNamed(widget, "widget")) {
            fail(widget, "the root element is <" +
                             std::string(reinterpret_cast<const char*>(widget->name)) +
                             ">, not <widget>");
        }
        for (xmlNode* child = widget->children; child != nullptr; child = child->next) {
            readElement(child);
        }
        requireApplication(widget);
        requireContent(widget);
        m_info.deviceRoot = packageResourceRoot(m_info.package);
        m_info.hostRoot = hostPath(m_info.deviceRoot);
        return m_info;
    }

    [[noreturn]] void fail(long line, const std::string& reason) const {
        throw std::runtime_error(m_path + ":" + std::to_string(line) + ": " + reason);
    }

private:
    [[noreturn]] void fail(xmlNode* node, const std::string& reason) const {
        fail(xmlGetLineNo(node), reason);
    }

    std::string required(xmlNode* node, const char* name) const {
        std::optional<std::string> value = attribute(node, name);
        if (!value || trim(*value).empty()) {
            fail(node, "<" + std::string(reinterpret_cast<const char*>(node->name)) +
                           "> needs a non-empty " + name + " attribute");
        }
        return trim(*value);
    }

    void readElement(xmlNode* node) {
        if (isNamed(node, "name")) {
            m_info.name = textContent(node);
        } else if (isNamed(node, "application")) {
            readApplication(node);
        } else if (isNamed(node, "privilege")) {
            m_info.privileges.push_back(required(node, "name"));
        } else if (isNamed(node, "metadata")) {
            m_info.metadata.emplace_back(required(node, "key"),
                                         attribute(node, "value").value_or(""));
        } else if (isNamed(node, "content")) {
            readContent(node);
        }
    }

    void readApplication(xmlNode* node) {
        if (m_application != nullptr) {
            fail(node, "more than one <application> element");
        }
        m_application = node;
        m_info.appId = required(node, "id");
        m_info.package = required(node, "package");
    }

    void readContent(xmlNode* node) {
        if (m_content != nullptr) {
            fail(node, "more than one <content> element");
        }
        m_content = node;
        m_info.startScript = required(node, "src");
    }

    void requireApplication(xmlNode* widget) const {
        if (m_application == nullptr) {
            fail(widget, "missing <application id=\"...\" package=\"...\"/>");
        }
        if (!isPackageName(m_info.package)) {
            fail(m_application,
                 "bad package \"" + m_info.package + "\": it must be 1 to 32 letters and digits");
        }
        if (!isAppIdOf(m_info.appId, m_info.package)) {
            fail(m_application, "bad application id \"" + m_info.appId + "\": it must be \"" +
                                    m_info.package + ".\" followed by a name");
        }
    }

    void requireContent(xmlNode* widget) const {
        if (m_content == nullptr) {
            fail(widget, "missing <content src=\"...\"/>");
        }
        if (!isRelativeInside(m_info.startScript)) {
            fail(m_content, "bad content src \"" + m_info.startScript +
                                "\": it must be a path inside the app folder");
        }
    }

    std::string m_path;
    AppInfo m_info;
    xmlNode* m_application = nullptr;
    xmlNode* m_content = nullptr;
};

Document readDocument(const std::string& path) {
    if (access(path.c_str(), R_OK) != 0) {
        throw std::runtime_error(path + ":0: cannot read the file: " + errorText(errno));
    }
    std::unique_ptr<xmlParserCtxt, ContextDeleter> context(xmlNewParserCtxt());
    if (!context) {
        throw std::runtime_error(path + ":0: cannot make an XML parser");
    }
    Document document(xmlCtxtReadFile(context.get(), path.c_str(), nullptr,
                                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    if (!document) {
        const xmlError* error = xmlCtxtGetLastError(context.get());
        const int line = error != nullptr ? error->line : 0;
        const std::string reason =
            error != nullptr && error->message != nullptr ? trim(error->message) : "unknown error";
        throw std::runtime_error(path + ":" + std::to_string(line) +
                                 ": not well-formed XML: " + reason);
    }
    return document;
}

}  // namespace

bool contentIsPage(const AppInfo& app) {
    const std::string& content = app.startScript;
    const auto dot = content.rfind('.');
    if (dot == std::string::npos) {
        return false;
    }
    std::string extension = content.substr(dot + 1);
    for (char& letter : extension) {
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    }
    return extension == "html" || extension == "htm" || extension == "xhtml";
}

AppInfo parseAppConfig(const std::string& configXmlPath) {
    Document document = readDocument(configXmlPath);
    AppConfigReader reader(configXmlPath);
    xmlNode* widget = xmlDocGetRootElement(document.get());
    if (widget == nullptr) {
        reader.fail(1, "the document has no root element");
    }
    return reader.read(widget);
}

}  // namespace Device
}  // namespace Kv
