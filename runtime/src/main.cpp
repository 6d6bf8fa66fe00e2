// kv-runtime: installs, lists and runs web apps on an emulated device. See
// CommandLine.h for the usage and Commands.h for the exit codes.
#include "CommandLine.h"
#include "Commands.h"

#include <kv-device/Device.h>
#include <kv-device/Memory.h>

#include <cstdio>
#include <exception>

namespace {

using namespace Kv::Runtime;

// Selects the device and, for a run, enters it. Nothing before this makes a
// thread: entering the device needs a single-threaded process.
int prepareDevice(const CommandLine& line) {
    try {
        if (line.deviceDir) {
            Kv::Device::select(*line.deviceDir);
        }
        if (line.command == Command::Run) {
            Kv::Device::enter();
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kv-runtime: cannot use the device: %s\n", error.what());
        return kExitFailure;
    }
}

int dispatch(const CommandLine& line) {
    switch (line.command) {
        case Command::Install:
            return installCommand(line);
        case Command::Run:
            return runCommand(line);
        case Command::List:
            return listCommand();
    }
    return kExitFailure;
}

int runProgram(const Kv::Cli::Arguments& arguments) {
    const CommandLine line = parseCommandLine(arguments);
    if (const int failed = prepareDevice(line)) {
        return failed;
    }
    return dispatch(line);
}

}  // namespace

int main(int argc, char* argv[]) {
    Kv::Device::keepLargeAllocationsInTheHeap();
    return programCommandLine().run(argc, argv, runProgram);
}
