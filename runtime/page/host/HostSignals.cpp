#include "HostSignals.h"

#include <glib-unix.h>

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>

namespace Kv {
namespace Page {

namespace {

int signalPipe[2] = {-1, -1};

void onSignal(int signal) {
    const unsigned char number = static_cast<unsigned char>(signal);
    const int saved = errno;
    (void)!write(signalPipe[1], &number, 1);
    errno = saved;
}

Runtime::ExitReason reasonOf(int signal) {
    switch (signal) {
        case SIGINT:
            return Runtime::ExitReason::Interrupt;
        case SIGQUIT:
            return Runtime::ExitReason::Quit;
        default:
            return Runtime::ExitReason::Terminate;
    }
}

}  // namespace

void watchStopSignals(std::function<void(Runtime::ExitReason)> stop) {
    if (pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("kv-page-host: pipe2");
        return;
    }
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGQUIT}) {
        sigaction(signal, &action, nullptr);
    }
    auto* handler = new std::function<void(Runtime::ExitReason)>(std::move(stop));
    g_unix_fd_add(
        signalPipe[0], G_IO_IN,
        [](gint fd, GIOCondition, gpointer data) -> gboolean {
            unsigned char number = 0;
            while (read(fd, &number, 1) == 1) {
                (*static_cast<std::function<void(Runtime::ExitReason)>*>(data))(reasonOf(number));
            }
            return G_SOURCE_CONTINUE;
        },
        handler);
}

}  // namespace Page
}  // namespace Kv
