// The project's version, one for every program ("1.0.0").
#ifndef KV_CLI_VERSION_H
#define KV_CLI_VERSION_H

namespace Kv {
namespace Cli {

const char* version();

}  // namespace Cli
}  // namespace Kv

#endif
