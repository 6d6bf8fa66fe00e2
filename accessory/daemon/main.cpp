// kv-accessoryd: the accessory service of one device. It serves the device's
// apps on the device's accessory socket and links the device with its paired
// device over TCP.
#include <Logger.h>
#include <kv-accessory/DeviceIdentity.h>
#include <kv-device/Device.h>
#include <kv-device/FileUtil.h>
#include <kv-device/Memory.h>

#include <unistd.h>

#include <csignal>
#include <memory>

#include "ClientServer.h"
#include "KeyLog.h"
#include "Options.h"
#include "PeerLink.h"
#include "Service.h"

using namespace Kv::Accessory;

namespace {

std::string folderName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The device's paths become real; without namespaces the service still runs
// and keeps to its host paths.
void enterDevice() {
    try {
        Kv::Device::enter();
    } catch (const std::exception& error) {
        LoggerW("running outside the device: " << error.what());
    }
}

// The key log that --keylog asks for, opened before the device is entered so
// that its path is the one the user gave; null without the option. Throws
// std::runtime_error when the file can't be opened: a daemon asked to keep
// the secrets does not link without them.
std::shared_ptr<KeyLog> openKeyLog(const DaemonOptions& options) {
    if (options.keyLog.empty()) {
        return nullptr;
    }
    auto keyLog = std::make_shared<KeyLog>(options.keyLog);
    LoggerW("link: the TLS secrets of the link are written to "
            << keyLog->path()
            << " (--keylog): whoever reads that file can decrypt everything on the link, "
               "secure data included; for debugging only, never on a device in use");
    return keyLog;
}

std::unique_ptr<PeerLink> makeLink(asio::io_context& io, const DaemonOptions& options,
                                   Service& service, const std::string& name,
                                   std::shared_ptr<KeyLog> keyLog) {
    if (!options.linkGiven) {
        return nullptr;
    }
    PeerLink::Handlers handlers{
        [&service](const std::string& peer) { service.onLinkUp(peer); },
        [&service] { service.onLinkDown(); },
        [&service](wire::LinkMessage& message) { service.onLinkMessage(message); },
        [&service](std::uint64_t tag) { service.onLinkWritten(tag); },
        [&service] { service.onLinkSilent(); }};
    const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(options.host), options.port);
    std::shared_ptr<LinkTls> tls;
    if (!options.insecure) {
        const std::string root = Kv::Device::root();
        ensureIdentity(root, name);
        tls = std::make_shared<LinkTls>(root);
        if (keyLog) {
            tls->logSecretsTo(std::move(keyLog));
        }
    }
    return std::make_unique<PeerLink>(
        io, options.listen ? PeerLink::Mode::Listen : PeerLink::Mode::Connect, endpoint, name,
        std::move(tls), service.linkProfile(), std::move(handlers));
}

// SIGINT or SIGTERM: the apps and the link are closed and the main loop ends.
void stopOnSignal(int signal, asio::io_context& io, Service& service, ClientServer& server,
                  PeerLink* link) {
    LoggerI("stopping on signal " << signal);
    server.stop();
    if (link != nullptr) {
        link->stop();
    }
    service.closeAll();
    io.stop();
}

int run(const DaemonOptions& options) {
    if (!options.device.empty()) {
        Kv::Device::select(options.device);
    }
    const std::string root = Kv::Device::root();
    std::shared_ptr<KeyLog> keyLog = openKeyLog(options);
    enterDevice();
    const std::string name = options.name.empty() ? folderName(root) : options.name;
    std::signal(SIGPIPE, SIG_IGN);

    asio::io_context io;
    Service service(io, name, *findLinkProfile(options.linkProfile));
    std::unique_ptr<PeerLink> link = makeLink(io, options, service, name, std::move(keyLog));
    service.setLink(link.get());
    ClientServer server(io, service, Kv::Device::accessorySocket());
    server.start();
    if (link) {
        link->start();
        if (options.listen) {
            Kv::Device::writeFileAtomically(root + "/accessoryd.port",
                                            std::to_string(link->localPort()) + "\n");
        }
    }
    Kv::Device::writeFileAtomically(root + "/accessoryd.pid", std::to_string(::getpid()) + "\n");

    asio::signal_set signals(io, SIGINT, SIGTERM);
    signals.async_wait([&](const asio::error_code&, int signal) {
        stopOnSignal(signal, io, service, server, link.get());
    });
    LoggerI("accessory service of " << name << " ready");
    io.run();
    ::unlink((root + "/accessoryd.pid").c_str());
    return 0;
}

// Runs the daemon; a failure is logged as well as told on stderr.
int runLogged(const Kv::Cli::Arguments& arguments) {
    const DaemonOptions options = readDaemonOptions(arguments);
    try {
        return run(options);
    } catch (const std::exception& error) {
        LoggerE(error.what());
        throw;
    }
}

}  // namespace

int main(int argc, char** argv) {
    Kv::Device::keepLargeAllocationsInTheHeap();
    return daemonCommandLine().run(argc, argv, runLogged);
}
