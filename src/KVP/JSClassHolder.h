// A script class record made once, on first use, and released when the
// plug-in is unloaded (the holder is a function-local static, so its
// destructor runs when the runtime closes the plug-in):
//   JSClassRef JSKvPeerAgent::getClassRef() {
//       static const JSClassHolder holder(getClassInfo());
//       return holder.get();
//   }
#ifndef KVP_JS_CLASS_HOLDER_H
#define KVP_JS_CLASS_HOLDER_H

#include <JavaScriptCore/JavaScript.h>

namespace DeviceAPI {
namespace KVP {

class JSClassHolder {
public:
    explicit JSClassHolder(const JSClassDefinition* definition)
        : m_classRef(JSClassCreate(definition)) {}
    ~JSClassHolder() { JSClassRelease(m_classRef); }
    JSClassHolder(const JSClassHolder&) = delete;
    JSClassHolder& operator=(const JSClassHolder&) = delete;

    JSClassRef get() const { return m_classRef; }

private:
    JSClassRef m_classRef;
};

}  // namespace KVP
}  // namespace DeviceAPI

#endif
