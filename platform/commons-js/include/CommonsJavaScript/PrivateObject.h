// The private data of a script object: the context it was made in and the
// native object behind it. The policy says what happens to the native
// object when the private object goes:
//   NoOwnership  the value is simply dropped; for a DPL::SharedPtr that
//                releases the reference the private object held, and the
//                native object lives on while others hold it.
//   Ownership    for raw pointers: the native object is deleted.
// A script class's finaliser deletes the private object.
//   typedef PrivateObject<KvAgentPtr> JSKvAgentPriv;
//   JSObjectMake(context, classRef, new JSKvAgentPriv(context, agent));
#ifndef KV_PLATFORM_COMMONS_JS_PRIVATE_OBJECT_H
#define KV_PLATFORM_COMMONS_JS_PRIVATE_OBJECT_H

#include <dpl/assert.h>

#include <JavaScriptCore/JavaScript.h>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

struct NoOwnership {
    template <class T>
    static void destroy(T& /*object*/) {}
};

struct Ownership {
    template <class T>
    static void destroy(T& object) {
        delete object;
        object = nullptr;
    }
};

template <class T, class Policy = NoOwnership>
class PrivateObject {
public:
    typedef T ObjectType;

    // Both the context and the object must be non-null.
    PrivateObject(JSContextRef context, const T& object) : m_context(context), m_object(object) {
        AssertMsg(m_context != nullptr, "Context is NULL");
        AssertMsg(m_object != nullptr, "Object is NULL");
    }

    virtual ~PrivateObject() { Policy::destroy(m_object); }

    PrivateObject(const PrivateObject&) = delete;
    PrivateObject& operator=(const PrivateObject&) = delete;

    T getObject() const { return m_object; }
    JSContextRef getContext() const { return m_context; }

protected:
    JSContextRef m_context;
    T m_object;
};

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis

#endif
