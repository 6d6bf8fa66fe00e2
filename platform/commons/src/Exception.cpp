#include <Commons/Exception.h>

#include <utility>

namespace WrtDeviceApis {
namespace Commons {

Exception::Exception(const char* file, std::string_view function, int line, std::string message)
    : m_file(file != nullptr ? file : ""),
      m_function(function),
      m_line(line),
      m_message(std::move(message)) {}

}  // namespace Commons
}  // namespace WrtDeviceApis
