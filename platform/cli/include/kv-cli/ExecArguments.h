// A command's words as the null-terminated array that execv takes.
#ifndef KV_CLI_EXEC_ARGUMENTS_H
#define KV_CLI_EXEC_ARGUMENTS_H

#include <string>
#include <vector>

namespace Kv {
namespace Cli {

// Points into `words`, which must outlive the array (up to the exec).
std::vector<char*> execArguments(std::vector<std::string>& words);

}  // namespace Cli
}  // namespace Kv

#endif
