// Which loads a page may make: the files of its own installed app folder,
// and the URLs that name no place (about:, data:, blob:). Everything else, a
// file beside the app (through "..", an absolute path or a link that leads
// out), another app's folder, any network address, is refused before it is
// asked for.
#ifndef KV_PAGE_REQUEST_POLICY_H
#define KV_PAGE_REQUEST_POLICY_H

#include <string>

namespace Kv {
namespace Page {

class RequestPolicy {
public:
    // `appRoot` is the app's folder as this process sees it.
    explicit RequestPolicy(const std::string& appRoot);

    bool allows(const std::string& uri) const;

private:
    bool allowsFile(const std::string& path) const;

    std::string m_root;  // canonical, with a trailing slash
};

}  // namespace Page
}  // namespace Kv

#endif
