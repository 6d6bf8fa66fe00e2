#include <kv-cli/ExecArguments.h>

namespace Kv {
namespace Cli {

std::vector<char*> execArguments(std::vector<std::string>& words) {
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    return argv;
}

}  // namespace Cli
}  // namespace Kv
