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

// The definition of one of the API's script classes: version 0, no class
// attributes, no parent class, the given tables and hooks, nothing else.
// Being constexpr, a class's definition is ready before any code of the
// plug-in runs, whichever file asks for the class first.
constexpr JSClassDefinition makeClassDefinition(const char* className,
                                                const JSStaticValue* staticValues,
                                                const JSStaticFunction* staticFunctions,
                                                JSObjectInitializeCallback initialize,
                                                JSObjectFinalizeCallback finalize) {
    return JSClassDefinition{0,
                             kJSClassAttributeNone,
                             className,
                             nullptr,
                             staticValues,
                             staticFunctions,
                             initialize,
                             finalize,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr};
}

// The initialise hook of the classes whose objects are only ever made with
// their private data already given (createJSObject): the object is complete
// when the engine calls the hook, so there is nothing left to set up.
inline void initializeWithGivenPrivateData(JSContextRef /*context*/, JSObjectRef /*object*/) {}

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
