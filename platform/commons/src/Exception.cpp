#include <Commons/Exception.h>

#include <utility>

namespace WrtDeviceApis {
namespace Commons {

Exception::Exception(const char* file, const char* function, int line, std::string message)
    : m_file(file != nullptr ? file : ""),
      m_function(function != nullptr ? function : ""),
      m_line(line),
      m_message(std::move(message)) {}

}  // namespace Commons
}  // namespace WrtDeviceApis
