// The commons' exceptions. Each class has one exception code; request
// receivers catch an exception and put its code on the event.
//   ThrowMsg(InvalidArgumentException, "Function with id " << id << "not found");
#ifndef KV_PLATFORM_COMMONS_EXCEPTION_H
#define KV_PLATFORM_COMMONS_EXCEPTION_H

#include <exception>
#include <sstream>
#include <string>
#include <string_view>

#include <FunctionName.h>

namespace WrtDeviceApis {
namespace Commons {

// The exception codes carried by events. 0 is success; the others name the
// failure that a receiver met.
class ExceptionCodes {
public:
    enum Enumeration {
        None = 0,
        SecurityException = 1,
        InvalidArgumentException = 2,
        ConversionException = 3,
        NullPointerException = 4,
        PlatformException = 5,
        UnknownException = 6,
        PlatformWrongStateException = 9,
        NotFoundException = 18,
    };
};

class Exception : public std::exception {
public:
    Exception(const char* file, std::string_view function, int line, std::string message = {});

    const std::string& GetMessage() const { return m_message; }
    const std::string& GetFile() const { return m_file; }
    const std::string& GetFunction() const { return m_function; }
    int GetLine() const { return m_line; }
    const char* what() const noexcept override { return m_message.c_str(); }

    virtual ExceptionCodes::Enumeration getCode() const { return ExceptionCodes::UnknownException; }

private:
    std::string m_file;
    std::string m_function;
    int m_line;
    std::string m_message;
};

#define KV_COMMONS_DECLARE_EXCEPTION(Name)                                                    \
    class Name : public Exception {                                                           \
    public:                                                                                   \
        using Exception::Exception;                                                           \
        ExceptionCodes::Enumeration getCode() const override { return ExceptionCodes::Name; } \
    }

KV_COMMONS_DECLARE_EXCEPTION(SecurityException);
KV_COMMONS_DECLARE_EXCEPTION(InvalidArgumentException);
KV_COMMONS_DECLARE_EXCEPTION(ConversionException);
KV_COMMONS_DECLARE_EXCEPTION(NullPointerException);
KV_COMMONS_DECLARE_EXCEPTION(PlatformException);
KV_COMMONS_DECLARE_EXCEPTION(UnknownException);
KV_COMMONS_DECLARE_EXCEPTION(PlatformWrongStateException);
KV_COMMONS_DECLARE_EXCEPTION(NotFoundException);

#undef KV_COMMONS_DECLARE_EXCEPTION

}  // namespace Commons
}  // namespace WrtDeviceApis

// Throws `ExceptionClass` with a message built by streaming `message`.
#define ThrowMsg(ExceptionClass, message)                                                      \
    do {                                                                                       \
        std::ostringstream kvThrowStream_;                                                     \
        kvThrowStream_ << message;                                                             \
        throw ExceptionClass(__FILE_NAME__, KV_FUNCTION_NAME, __LINE__, kvThrowStream_.str()); \
    } while (0)

#define Throw(ExceptionClass) throw ExceptionClass(__FILE_NAME__, KV_FUNCTION_NAME, __LINE__)

#endif
