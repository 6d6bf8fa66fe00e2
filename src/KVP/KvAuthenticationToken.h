// The result of a successful authentication of a peer agent.
#ifndef KVP_KV_AUTHENTICATION_TOKEN_H
#define KVP_KV_AUTHENTICATION_TOKEN_H

#include <dpl/shared_ptr.h>

#include <string>
#include <utility>

namespace DeviceAPI {
namespace KVP {

class KvAuthenticationToken {
public:
    KvAuthenticationToken(std::string key, int authenticationType)
        : m_key(std::move(key)), m_authenticationType(authenticationType) {}

    const std::string& getKey() const { return m_key; }
    // A KvAuthenticationTokenType number.
    int getAuthenticationType() const { return m_authenticationType; }

private:
    std::string m_key;
    int m_authenticationType;
};

typedef DPL::SharedPtr<KvAuthenticationToken> KvAuthenticationTokenPtr;

}  // namespace KVP
}  // namespace DeviceAPI

#endif
