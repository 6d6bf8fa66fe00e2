// Checking a service-profile file against the built-in schema (libxml2's XML
// Schema validator). The schema's text is generated into the library from
// platform/device/schema/service-profile.xsd (see CMakeLists.txt).
#include <kv-accessory/ServiceProfileReader.h>
#include <kv-device/FileUtil.h>
#include <kv-device/ServiceProfileSchema.h>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlschemas.h>

#include <unistd.h>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace Kv {
namespace Device {

// Generated from service-profile.xsd.
const char* embeddedServiceProfileSchema();

namespace {

struct DocumentDeleter {
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
struct ParserDeleter {
    void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};
struct SchemaParserDeleter {
    void operator()(xmlSchemaParserCtxt* context) const { xmlSchemaFreeParserCtxt(context); }
};
struct SchemaDeleter {
    void operator()(xmlSchema* schema) const { xmlSchemaFree(schema); }
};
struct ValidatorDeleter {
    void operator()(xmlSchemaValidCtxt* context) const { xmlSchemaFreeValidCtxt(context); }
};

// The error argument of libxml2's structured error handlers: `xmlError*` in
// older releases, `const xmlError*` in newer ones.
template <class>
struct SecondArgument;
template <class Result, class First, class Second>
struct SecondArgument<Result (*)(First, Second)> {
    using type = Second;
};
using XmlErrorArgument = SecondArgument<xmlStructuredErrorFunc>::type;

struct Problem {
    long line;
    std::string message;
};

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// Collects the errors of libxml2's parser or validator (warnings are left
// out). An invalid value gives the validator a second message of no use to
// the reader ("No precomputed value available"): dropped.
void collectProblem(void* data, XmlErrorArgument error) {
    if (error == nullptr || error->message == nullptr || error->level < XML_ERR_ERROR) {
        return;
    }
    const std::string message = trim(error->message);
    if (message.find("No precomputed value available") != std::string::npos) {
        return;
    }
    static_cast<std::vector<Problem>*>(data)->push_back({error->line, message});
}

// The words of a pattern that lists words in any letter case, such as
// "[Hh][Ii][Gg][Hh]|[Ll][Oo][Ww]" ("high, low"); empty for any other pattern.
std::string wordsOf(const std::string& pattern) {
    std::string words;
    std::string word;
    for (size_t i = 0; i <= pattern.size(); ++i) {
        if (i == pattern.size() || pattern[i] == '|') {
            if (word.empty()) {
                return {};
            }
            words += (words.empty() ? "" : ", ") + word;
            word.clear();
        } else if (pattern[i] == '_') {
            word += '_';
        } else if (pattern[i] == '[' && i + 3 < pattern.size() && pattern[i + 3] == ']' &&
                   std::tolower(static_cast<unsigned char>(pattern[i + 1])) ==
                       std::tolower(static_cast<unsigned char>(pattern[i + 2]))) {
            word += static_cast<char>(std::tolower(static_cast<unsigned char>(pattern[i + 1])));
            i += 3;
        } else {
            return {};
        }
    }
    return words;
}

// Sends the structured errors of libxml2 on this thread to `problems` while
// it lives, then gives them back to the previous handler.
class StructuredErrors {
public:
    explicit StructuredErrors(std::vector<Problem>* problems)
        : m_previous(xmlStructuredError), m_previousContext(xmlStructuredErrorContext) {
        xmlSetStructuredErrorFunc(problems, collectProblem);
    }
    ~StructuredErrors() { xmlSetStructuredErrorFunc(m_previousContext, m_previous); }
    StructuredErrors(const StructuredErrors&) = delete;
    StructuredErrors& operator=(const StructuredErrors&) = delete;

private:
    xmlStructuredErrorFunc m_previous;
    void* m_previousContext;
};

// What a value of one of the schema's number types must be.
std::string typeProblem(const std::string& message) {
    static const std::regex atomicProblem(
        R"('(.*)' is not a valid value of the atomic type '(\w+)'\.?$)");
    static const std::map<std::string, std::string> meanings = {
        {"seconds", "is not a number of seconds from 1 to 65535"},
        {"channelId", "is not a channel id from 1 to 65535"},
    };
    std::smatch match;
    if (!std::regex_search(message, match, atomicProblem)) {
        return message;
    }
    const auto known = meanings.find(match[2].str());
    if (known == meanings.end()) {
        return message;
    }
    return message.substr(0, match.position(0)) + "'" + match[1].str() + "' " + known->second;
}

// libxml2 names the pattern or the type that a value breaks; this says what
// it means.
std::string readable(const std::string& message) {
    static const std::regex patternProblem(
        R"(\[facet 'pattern'\] The value '(.*)' is not accepted by the pattern '(.*)'\.?$)");
    static const std::map<std::string, std::string> meanings = {
        {R"(\S+)", "is not a text without blanks"},
        {"[0-9]+", "is not a number written in digits only"},
    };
    std::smatch match;
    if (!std::regex_search(message, match, patternProblem)) {
        return typeProblem(message);
    }
    const std::string value = match[1].str();
    const std::string pattern = match[2].str();
    std::string meaning;
    if (const std::string words = wordsOf(pattern); !words.empty()) {
        meaning = "is not one of " + words + " (in any letter case)";
    } else if (const auto known = meanings.find(pattern); known != meanings.end()) {
        meaning = known->second;
    } else {
        return message;
    }
    return message.substr(0, match.position(0)) + "'" + value + "' " + meaning;
}

xmlSchema* schema() {
    static const std::unique_ptr<xmlSchema, SchemaDeleter> parsed = [] {
        const char* text = serviceProfileSchema();
        std::unique_ptr<xmlSchemaParserCtxt, SchemaParserDeleter> parser(
            xmlSchemaNewMemParserCtxt(text, static_cast<int>(std::strlen(text))));
        std::vector<Problem> problems;
        if (parser) {
            xmlSchemaSetParserStructuredErrors(parser.get(), collectProblem, &problems);
        }
        std::unique_ptr<xmlSchema, SchemaDeleter> result(parser ? xmlSchemaParse(parser.get())
                                                                : nullptr);
        if (!result) {
            throw std::logic_error(
                "the built-in service-profile schema does not compile: " +
                (problems.empty() ? std::string("out of memory") : problems.front().message));
        }
        return result;
    }();
    return parsed.get();
}

[[noreturn]] void fail(const std::string& path, long line, const std::string& reason) {
    throw std::runtime_error(path + ":" + std::to_string(line) + ": " + reason);
}

std::unique_ptr<xmlDoc, DocumentDeleter> readDocument(const std::string& path) {
    if (access(path.c_str(), R_OK) != 0) {
        fail(path, 0, "cannot read the service-profile file: " + errorText(errno));
    }
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    using Kv::Accessory::kMaxServiceProfileFileSize;
    if (!error && size > kMaxServiceProfileFileSize) {
        fail(path, 0,
             "the service-profile file has " + std::to_string(size) + " bytes; files above " +
                 std::to_string(kMaxServiceProfileFileSize) + " bytes (" +
                 std::to_string(kMaxServiceProfileFileSize / 1024) + " KiB) are never read");
    }
    std::unique_ptr<xmlParserCtxt, ParserDeleter> parser(xmlNewParserCtxt());
    if (!parser) {
        fail(path, 0, "cannot make an XML parser");
    }
    // The parser goes on after some errors and its context keeps only the
    // last one; the first one says what is wrong.
    std::vector<Problem> problems;
    std::unique_ptr<xmlDoc, DocumentDeleter> document;
    {
        const StructuredErrors collecting(&problems);
        document.reset(xmlCtxtReadFile(parser.get(), path.c_str(), nullptr,
                                       XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    }
    if (!document || !problems.empty()) {
        fail(path, problems.empty() ? 0 : problems.front().line,
             "not well-formed XML: " +
                 (problems.empty() ? std::string("unknown error") : problems.front().message));
    }
    return document;
}

}  // namespace

const char* serviceProfileSchema() { return embeddedServiceProfileSchema(); }

void checkServiceProfile(const std::string& path) {
    const std::unique_ptr<xmlDoc, DocumentDeleter> document = readDocument(path);
    std::unique_ptr<xmlSchemaValidCtxt, ValidatorDeleter> validator(
        xmlSchemaNewValidCtxt(schema()));
    if (!validator) {
        fail(path, 0, "cannot make a schema validator");
    }
    std::vector<Problem> problems;
    xmlSchemaSetValidStructuredErrors(validator.get(), collectProblem, &problems);
    const int result = xmlSchemaValidateDoc(validator.get(), document.get());
    if (result == 0) {
        return;
    }
    if (problems.empty()) {
        fail(path, 0, "cannot be checked against the service-profile schema");
    }
    std::string reason = "breaks the service-profile schema: " + readable(problems.front().message);
    if (problems.size() > 1) {
        reason += " (and " + std::to_string(problems.size() - 1) + " more problem" +
                  (problems.size() > 2 ? "s" : "") + ")";
    }
    fail(path, problems.front().line, reason);
}

}  // namespace Device
}  // namespace Kv
