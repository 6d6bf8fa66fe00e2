#include <kv-cli/Version.h>

namespace Kv {
namespace Cli {

const char* version() { return KV_VERSION; }

}  // namespace Cli
}  // namespace Kv
