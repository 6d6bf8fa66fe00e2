// One long option of a program: --NAME, or --NAME VALUE (also --NAME=VALUE).
#ifndef KV_CLI_OPTION_H
#define KV_CLI_OPTION_H

#include <string>

namespace Kv {
namespace Cli {

struct Option {
    enum Kind { Flag, WithValue };

    std::string name;  // without the dashes
    Kind kind = Flag;
};

// The device folder, named alike by every program: --device DIR.
inline const Option kDeviceOption{"device", Option::WithValue};

}  // namespace Cli
}  // namespace Kv

#endif
