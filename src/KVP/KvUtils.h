// Conversions between the file names that web applications use (URIs and
// virtual paths of the filesystem API) and the absolute paths that the
// accessory service uses, and a text clean-up used by the bridge. The
// functions keep no state and are safe on any thread.
#ifndef KVP_KV_UTILS_H
#define KVP_KV_UTILS_H

#include <string>

namespace DeviceAPI {
namespace KVP {

// True when the filesystem API takes `uri` as a virtual path or a file URI.
bool isValidFileUri(const std::string& uri);

// The absolute path that a virtual path or file URI names, or an empty
// string (and a warning in the log) when the filesystem API can't resolve
// it. Errors other than a failed conversion pass on to the caller.
std::string convertUriToPath(const std::string& uri);

// A "file://" URI for an absolute path; a text that already holds "file://"
// is returned as it is. Nothing is escaped.
std::string convertPathToUri(const std::string& path);

// The part of `path` after its last "/": the whole text when there is none,
// an empty string when the text ends in "/".
std::string getFileName(const std::string& path);

// `text` with every escaped slash ("\/") replaced by a plain "/".
std::string unescapeSlashes(const std::string& text);

}  // namespace KVP
}  // namespace DeviceAPI

#endif
