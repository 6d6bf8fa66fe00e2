// kv-bench-dbus: the same two measures as the accessory path's, over a
// private D-Bus message bus, for comparison: a round trip of a 64-byte array
// (a method that echoes it) and the throughput of 1 MiB arrays (a method that
// takes one and answers nothing but its return).
//
//   kv-bench-dbus serve --address ADDRESS
//   kv-bench-dbus roundtrip --address ADDRESS --size BYTES --count N
//   kv-bench-dbus throughput --address ADDRESS --size BYTES --count N
// The clients print "result NAME VALUE UNIT" lines.
#include <dbus/dbus.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr char kName[] = "org.kvbench.Echo";
constexpr char kPath[] = "/org/kvbench/Echo";
constexpr char kInterface[] = "org.kvbench.Echo";

DBusConnection* connect(const std::string& address) {
    DBusError error;
    dbus_error_init(&error);
    for (int attempt = 0; attempt < 200; ++attempt) {
        DBusConnection* connection = dbus_connection_open_private(address.c_str(), &error);
        if (connection != nullptr && dbus_bus_register(connection, &error)) {
            return connection;
        }
        dbus_error_free(&error);
        usleep(20000);
    }
    std::fprintf(stderr, "kv-bench-dbus: cannot reach the bus at %s\n", address.c_str());
    std::exit(1);
}

DBusHandlerResult handle(DBusConnection* connection, DBusMessage* message, void*) {
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_METHOD_CALL) {
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    }
    DBusMessage* reply = dbus_message_new_method_return(message);
    if (dbus_message_is_method_call(message, kInterface, "Echo")) {
        const unsigned char* bytes = nullptr;
        int length = 0;
        dbus_message_get_args(message, nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &bytes, &length,
                              DBUS_TYPE_INVALID);
        dbus_message_append_args(reply, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &bytes, length,
                                 DBUS_TYPE_INVALID);
    }
    dbus_connection_send(connection, reply, nullptr);
    dbus_message_unref(reply);
    return DBUS_HANDLER_RESULT_HANDLED;
}

int serve(const std::string& address) {
    DBusConnection* connection = connect(address);
    dbus_bus_request_name(connection, kName, DBUS_NAME_FLAG_DO_NOT_QUEUE, nullptr);
    const DBusObjectPathVTable table{nullptr, handle, nullptr, nullptr, nullptr, nullptr};
    dbus_connection_register_object_path(connection, kPath, &table, nullptr);
    std::printf("serving\n");
    std::fflush(stdout);
    while (dbus_connection_read_write_dispatch(connection, -1)) {
    }
    return 0;
}

// One blocking call of `method` with `size` bytes.
void call(DBusConnection* connection, const char* method, const std::string& bytes) {
    DBusMessage* message = dbus_message_new_method_call(kName, kPath, kInterface, method);
    const char* data = bytes.data();
    dbus_message_append_args(message, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &data,
                             static_cast<int>(bytes.size()), DBUS_TYPE_INVALID);
    DBusMessage* reply =
        dbus_connection_send_with_reply_and_block(connection, message, 10000, nullptr);
    dbus_message_unref(message);
    if (reply == nullptr) {
        std::fprintf(stderr, "kv-bench-dbus: no answer\n");
        std::exit(1);
    }
    dbus_message_unref(reply);
}

double seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

int roundtrip(DBusConnection* connection, std::size_t size, std::size_t count) {
    const std::string bytes(size, 'p');
    std::vector<double> times;
    for (std::size_t i = 0; i < count; ++i) {
        const auto started = Clock::now();
        call(connection, "Echo", bytes);
        times.push_back(seconds(Clock::now() - started) * 1e6);
    }
    std::sort(times.begin(), times.end());
    std::printf("result roundtrip-median %.1f us\n", times[times.size() / 2]);
    std::printf("result roundtrip-p99 %.1f us\n", times[times.size() * 99 / 100]);
    return 0;
}

int throughput(DBusConnection* connection, std::size_t size, std::size_t count) {
    const std::string bytes(size, 'd');
    const auto started = Clock::now();
    for (std::size_t i = 0; i < count; ++i) {
        call(connection, "Take", bytes);
    }
    const double elapsed = seconds(Clock::now() - started);
    std::printf("result throughput %.1f MB/s\n", static_cast<double>(size * count) / elapsed / 1e6);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string role = argc > 1 ? argv[1] : "";
    std::string address;
    std::size_t size = 64;
    std::size_t count = 1000;
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--address") {
            address = argv[i + 1];
        } else if (option == "--size") {
            size = std::stoul(argv[i + 1]);
        } else if (option == "--count") {
            count = std::stoul(argv[i + 1]);
        }
    }
    if (role == "serve") {
        return serve(address);
    }
    if (role == "roundtrip") {
        return roundtrip(connect(address), size, count);
    }
    if (role == "throughput") {
        return throughput(connect(address), size, count);
    }
    std::fprintf(stderr, "usage: kv-bench-dbus serve|roundtrip|throughput --address ADDRESS\n");
    return 2;
}
