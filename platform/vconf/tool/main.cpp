// kv-vconf: reads and writes the vconf store of a device from the shell.
#include <vconf.h>

#include <kv-cli/CommandLine.h>
#include <kv-device/Device.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Kv::Cli::UsageError;

const char kUsage[] =
    "usage: kv-vconf [--device DIR] COMMAND\n"
    "commands:\n"
    "  get KEY                                  print the key's value\n"
    "  set KEY int|bool|double|string VALUE     write the key (notifies its watchers)\n"
    "  unset KEY                                remove the key\n"
    "options:\n"
    "  --device DIR   the device (default: $KV_DEVICE, else the default device)\n";

int printValue(const std::string& key) {
    int number = 0;
    double real = 0;
    if (vconf_get_int(key.c_str(), &number) == VCONF_OK ||
        vconf_get_bool(key.c_str(), &number) == VCONF_OK) {
        std::cout << number << "\n";
    } else if (vconf_get_dbl(key.c_str(), &real) == VCONF_OK) {
        std::cout << real << "\n";
    } else if (char* text = vconf_get_str(key.c_str())) {
        std::cout << text << "\n";
        std::free(text);
    } else {
        throw std::runtime_error("no key " + key);
    }
    return 0;
}

// The whole of `text` as a number; throws std::invalid_argument otherwise.
template <typename Number, typename Parse>
Number parseWhole(const std::string& text, Parse parse) {
    size_t used = 0;
    const Number number = parse(text, &used);
    if (used != text.size()) {
        throw std::invalid_argument(text);
    }
    return number;
}

int toInt(const std::string& text) {
    return parseWhole<int>(text,
                           [](const std::string& t, size_t* used) { return std::stoi(t, used); });
}

double toDouble(const std::string& text) {
    return parseWhole<double>(
        text, [](const std::string& t, size_t* used) { return std::stod(t, used); });
}

int setTypedValue(const std::string& key, const std::string& type, const std::string& value) {
    int result = VCONF_ERROR;
    if (type == "int") {
        result = vconf_set_int(key.c_str(), toInt(value));
    } else if (type == "bool") {
        result = vconf_set_bool(key.c_str(), toInt(value));
    } else if (type == "double") {
        result = vconf_set_dbl(key.c_str(), toDouble(value));
    } else if (type == "string") {
        result = vconf_set_str(key.c_str(), value.c_str());
    } else {
        throw UsageError("unknown type \"" + type + "\"");
    }
    return result == VCONF_OK ? 0 : 1;
}

int setValue(const std::string& key, const std::string& type, const std::string& value) {
    try {
        return setTypedValue(key, type, value);
    } catch (const UsageError&) {
        throw;
    } catch (const std::logic_error&) {
        throw UsageError("bad " + type + " value \"" + value + "\"");
    }
}

// What is wrong with a command line that names no command this tool runs.
[[noreturn]] void refuse(const std::string& command) {
    if (command.empty()) {
        throw UsageError("no command");
    }
    if (command != "get" && command != "set" && command != "unset") {
        throw UsageError("unknown command '" + command + "'");
    }
    throw UsageError("wrong number of arguments for " + command);
}

int dispatch(const std::vector<std::string>& arguments) {
    const std::string command = arguments.empty() ? "" : arguments[0];
    if (command == "get" && arguments.size() == 2) {
        return printValue(arguments[1]);
    }
    if (command == "set" && arguments.size() == 4) {
        return setValue(arguments[1], arguments[2], arguments[3]);
    }
    if (command == "unset" && arguments.size() == 2) {
        return vconf_unset(arguments[1].c_str()) == VCONF_OK ? 0 : 1;
    }
    refuse(command);
}

int run(const Kv::Cli::Arguments& arguments) {
    if (const auto device = arguments.value("device")) {
        Kv::Device::select(*device);
    }
    return dispatch(arguments.operands());
}

}  // namespace

int main(int argc, char** argv) {
    const Kv::Cli::CommandLine commandLine("kv-vconf", kUsage, {Kv::Cli::kDeviceOption});
    return commandLine.run(argc, argv, run);
}
