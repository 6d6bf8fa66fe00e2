// The error a request receiver hands to its controller: a code that the
// controller maps to a script error name, and the message the script sees.
#ifndef KVP_KV_ERROR_OBJECT_H
#define KVP_KV_ERROR_OBJECT_H

#include <dpl/shared_ptr.h>

#include <string>
#include <utility>

namespace DeviceAPI {
namespace KVP {

class KvErrorObject {
public:
    // The service is not available: no agent could be given.
    static constexpr int SERVICE_NOT_AVAILABLE = 2;

    KvErrorObject(int code, std::string message) : m_code(code), m_message(std::move(message)) {}

    int getCode() const { return m_code; }
    const std::string& getMessage() const { return m_message; }

private:
    int m_code;
    std::string m_message;
};

typedef DPL::SharedPtr<KvErrorObject> KvErrorObjectPtr;

}  // namespace KVP
}  // namespace DeviceAPI

#endif
