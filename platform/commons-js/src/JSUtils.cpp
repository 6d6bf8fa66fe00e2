#include <CommonsJavaScript/JSUtils.h>

#include <Commons/Exception.h>

#include "Utf8.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace WrtDeviceApis {
namespace CommonsJavaScript {

using Commons::ConversionException;

// The engine's characters are UTF-16 code units; the conversion to and from
// UTF-8 is ours (Utf8.h), straight into the target.
static_assert(sizeof(JSChar) == sizeof(char16_t));

namespace {

// The units of a text on its way into the engine, which copies them: one
// buffer per thread, kept for the next text (a fresh one for a large text
// would be new pages to fault in each time), but not kept beyond a bound.
constexpr std::size_t kKeptUnits = std::size_t{4} * 1024 * 1024;

char16_t* unitsFor(std::size_t count, std::unique_ptr<char16_t[]>& oneOff) {
    thread_local std::unique_ptr<char16_t[]> kept;
    thread_local std::size_t keptCount = 0;
    if (count > kKeptUnits) {
        oneOff.reset(new char16_t[count]);
        return oneOff.get();
    }
    if (count > keptCount) {
        kept.reset(new char16_t[count]);
        keptCount = count;
    }
    return kept.get();
}

}  // namespace

JSStringPtr JSUtils::makeJSString(const std::string& text) {
    // Not zero-filled: the codec writes every unit it reports.
    std::unique_ptr<char16_t[]> oneOff;
    char16_t* units = unitsFor(std::max<std::size_t>(text.size(), 1), oneOff);
    const std::size_t length = utf8ToUtf16(text, units);
    return JSStringPtr(
        JSStringCreateWithCharacters(reinterpret_cast<const JSChar*>(units), length));
}

std::string JSUtils::toString(JSStringRef string) {
    if (string == nullptr) {
        return {};
    }
    return utf16ToUtf8(reinterpret_cast<const char16_t*>(JSStringGetCharactersPtr(string)),
                       JSStringGetLength(string));
}

JSValueRef JSUtils::getJSProperty(JSContextRef context, JSObjectRef object,
                                  const std::string& name) {
    if (object == nullptr) {
        ThrowMsg(ConversionException, "Can not read property '" << name << "' of null");
    }
    JSStringPtr propertyName = makeJSString(name);
    if (!JSObjectHasProperty(context, object, propertyName.get())) {
        return nullptr;
    }
    JSValueRef exception = nullptr;
    JSValueRef value = JSObjectGetProperty(context, object, propertyName.get(), &exception);
    if (exception != nullptr) {
        ThrowMsg(ConversionException, "Reading property '"
                                          << name
                                          << "' failed: " << describeException(context, exception));
    }
    return value;
}

void JSUtils::setProperty(JSContextRef context, JSObjectRef object, const std::string& name,
                          JSValueRef value, JSPropertyAttributes attributes) {
    if (object == nullptr) {
        ThrowMsg(ConversionException, "Can not set property '" << name << "' of null");
    }
    JSStringPtr propertyName = makeJSString(name);
    JSValueRef exception = nullptr;
    JSObjectSetProperty(context, object, propertyName.get(),
                        value != nullptr ? value : JSValueMakeUndefined(context), attributes,
                        &exception);
    if (exception != nullptr) {
        ThrowMsg(ConversionException, "Setting property '"
                                          << name
                                          << "' failed: " << describeException(context, exception));
    }
}

bool JSUtils::hasProperty(JSContextRef context, JSObjectRef object, const std::string& name) {
    if (object == nullptr) {
        return false;
    }
    JSStringPtr propertyName = makeJSString(name);
    return JSObjectHasProperty(context, object, propertyName.get());
}

std::string JSUtils::describeException(JSContextRef context, JSValueRef exception) {
    if (exception == nullptr) {
        return "no exception";
    }
    JSValueRef nested = nullptr;
    JSStringPtr text(JSValueToStringCopy(context, exception, &nested));
    if (nested != nullptr || !text) {
        return "an exception that cannot be shown as text";
    }
    return toString(text.get());
}

}  // namespace CommonsJavaScript
}  // namespace WrtDeviceApis
