// A capture of the loopback traffic of one TCP port, written to a pcapng
// file by dumpcap, the capture program of tshark.
#ifndef KV_TESTS_ACCESSORY_PACKET_CAPTURE_H
#define KV_TESTS_ACCESSORY_PACKET_CAPTURE_H

#include <memory>
#include <string>

namespace KvTest {

class ChildProcess;

class PacketCapture {
public:
    // Starts capturing what goes to and from `port` on the loopback
    // interface into `file`, and waits until the capture runs.
    PacketCapture(unsigned short port, std::string file);
    ~PacketCapture();
    PacketCapture(const PacketCapture&) = delete;
    PacketCapture& operator=(const PacketCapture&) = delete;

    // Empty while capturing; else why the capture could not start.
    const std::string& failure() const { return m_failure; }
    // Whether it could not start for lack of the right to capture.
    bool notPermitted() const;
    const std::string& file() const { return m_file; }

    // Stops, once the packets on their way have been written; false (and a
    // test failure) when dumpcap did not end cleanly.
    bool stop();

private:
    std::string m_file;
    std::string m_failure;
    std::unique_ptr<ChildProcess> m_dumpcap;
};

// The path of `program` in a folder of PATH; empty when it is in none.
std::string programOnPath(const std::string& program);

}  // namespace KvTest

#endif
