// Exceptions of the device APIs that carry a Web API error: a name (such as
// "TypeMismatchError") and a message. Script methods catch them and answer
// with a WebAPIError object made by JSWebAPIErrorFactory.
//   throw TypeMismatchException("1st argument must be a function");
#ifndef KV_PLATFORM_COMMON_PLATFORM_EXCEPTION_H
#define KV_PLATFORM_COMMON_PLATFORM_EXCEPTION_H

#include <JavaScriptCore/JavaScript.h>

#include <exception>
#include <string>

namespace DeviceAPI {
namespace Common {

class BasePlatformException : public std::exception {
public:
    BasePlatformException(const char* name, const char* message);
    // Takes the name and message of a thrown script value: the `name` and
    // `message` properties of an object, or, for anything else, the name
    // "UnknownError" and the value's text as the message.
    BasePlatformException(JSContextRef context, JSValueRef exception);
    ~BasePlatformException() override;

    virtual std::string getName() const;
    virtual std::string getMessage() const;
    // "name: message", for logs.
    const char* what() const noexcept override;

protected:
    void setName(const std::string& name);

private:
    void updateWhat();

    std::string m_name;
    std::string m_message;
    std::string m_what;
};

// One subclass per error name. The script-value constructor keeps the
// subclass's name and takes the thrown value's message.
#define KV_DECLARE_PLATFORM_EXCEPTION(Class)               \
    class Class : public BasePlatformException {           \
    public:                                                \
        explicit Class(const char* message);               \
        Class(JSContextRef context, JSValueRef exception); \
    }

KV_DECLARE_PLATFORM_EXCEPTION(TypeMismatchException);
KV_DECLARE_PLATFORM_EXCEPTION(InvalidValuesException);
KV_DECLARE_PLATFORM_EXCEPTION(IOException);
KV_DECLARE_PLATFORM_EXCEPTION(NotFoundException);
KV_DECLARE_PLATFORM_EXCEPTION(SecurityException);
KV_DECLARE_PLATFORM_EXCEPTION(UnknownException);
KV_DECLARE_PLATFORM_EXCEPTION(ServiceNotAvailableException);
KV_DECLARE_PLATFORM_EXCEPTION(NotSupportedException);
KV_DECLARE_PLATFORM_EXCEPTION(InvalidStateException);

#undef KV_DECLARE_PLATFORM_EXCEPTION

}  // namespace Common
}  // namespace DeviceAPI

#endif
