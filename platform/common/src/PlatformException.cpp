#include <PlatformException.h>

#include <JSWebAPIErrorFactory.h>

#include <CommonsJavaScript/JSUtils.h>

namespace DeviceAPI {
namespace Common {

using WrtDeviceApis::CommonsJavaScript::JSUtils;

namespace {

// The text of `object[name]`, or nothing when it is absent or unreadable.
bool readText(JSContextRef context, JSObjectRef object, const char* name, std::string& text) {
    auto propertyName = JSUtils::makeJSString(name);
    JSValueRef exception = nullptr;
    JSValueRef value = JSObjectGetProperty(context, object, propertyName.get(), &exception);
    if (exception != nullptr || value == nullptr || JSValueIsUndefined(context, value)) {
        return false;
    }
    WrtDeviceApis::CommonsJavaScript::JSStringPtr string(
        JSValueToStringCopy(context, value, &exception));
    if (exception != nullptr || !string) {
        return false;
    }
    text = JSUtils::toString(string.get());
    return true;
}

}  // namespace

BasePlatformException::BasePlatformException(const char* name, const char* message)
    : m_name(name != nullptr ? name : ""), m_message(message != nullptr ? message : "") {
    updateWhat();
}

BasePlatformException::BasePlatformException(JSContextRef context, JSValueRef exception)
    : m_name(JSWebAPIErrorFactory::UNKNOWN_ERROR) {
    if (context != nullptr && exception != nullptr && JSValueIsObject(context, exception)) {
        JSObjectRef object = JSValueToObject(context, exception, nullptr);
        readText(context, object, "name", m_name);
        readText(context, object, "message", m_message);
    } else if (context != nullptr && exception != nullptr) {
        m_message = JSUtils::describeException(context, exception);
    }
    updateWhat();
}

BasePlatformException::~BasePlatformException() = default;

std::string BasePlatformException::getName() const { return m_name; }

std::string BasePlatformException::getMessage() const { return m_message; }

const char* BasePlatformException::what() const noexcept { return m_what.c_str(); }

void BasePlatformException::setName(const std::string& name) {
    m_name = name;
    updateWhat();
}

void BasePlatformException::updateWhat() { m_what = m_name + ": " + m_message; }

#define KV_DEFINE_PLATFORM_EXCEPTION(Class, errorName)                                       \
    Class::Class(const char* message) : BasePlatformException(errorName.c_str(), message) {} \
    Class::Class(JSContextRef context, JSValueRef exception)                                 \
        : BasePlatformException(context, exception) {                                        \
        setName(errorName);                                                                  \
    }

KV_DEFINE_PLATFORM_EXCEPTION(TypeMismatchException, JSWebAPIErrorFactory::TYPE_MISMATCH_ERROR)
KV_DEFINE_PLATFORM_EXCEPTION(InvalidValuesException, JSWebAPIErrorFactory::INVALID_VALUES_ERROR)
KV_DEFINE_PLATFORM_EXCEPTION(IOException, JSWebAPIErrorFactory::IO_ERROR)
KV_DEFINE_PLATFORM_EXCEPTION(NotFoundException, JSWebAPIErrorFactory::NOT_FOUND_ERROR)
KV_DEFINE_PLATFORM_EXCEPTION(SecurityException, JSWebAPIErrorFactory::SECURITY_ERROR)
KV_DEFINE_PLATFORM_EXCEPTION(UnknownException, JSWebAPIErrorFactory::UNKNOWN_ERROR)
KV_DEFINE_PLATFORM_EXCEPTION(ServiceNotAvailableException,
                             JSWebAPIErrorFactory::SERVICE_NOT_AVAILABLE_ERROR)
KV_DEFINE_PLATFORM_EXCEPTION(NotSupportedException, JSWebAPIErrorFactory::NOT_SUPPORTED_ERROR)
KV_DEFINE_PLATFORM_EXCEPTION(InvalidStateException, JSWebAPIErrorFactory::INVALID_STATE_ERROR)

#undef KV_DEFINE_PLATFORM_EXCEPTION

}  // namespace Common
}  // namespace DeviceAPI
