// What tshark reads in a capture of the device link: the TLS decrypted with
// the daemons' key log, the frames split and their messages decoded by the
// link's dissector (tools/kv-link.lua) with the link's .proto file, as the
// debugging guide (docs/debugging.md) tells a developer to run it.
#ifndef KV_TESTS_ACCESSORY_LINK_DISSECTION_H
#define KV_TESTS_ACCESSORY_LINK_DISSECTION_H

#include <string>
#include <vector>

namespace KvTest {

class LinkDissection {
public:
    // `keyLog` empty: tshark gets no secrets.
    LinkDissection(std::string capture, unsigned short port, std::string keyLog);

    // The occurrences of `fields` (Wireshark field names) in each packet that
    // has the first of them: one row per packet, one list per field. A test
    // failure, and no row, when tshark fails or complains.
    std::vector<std::vector<std::vector<std::string>>> rows(
        const std::vector<std::string>& fields) const;

    // Every occurrence of one field, packet after packet.
    std::vector<std::string> values(const std::string& field) const;

private:
    std::vector<std::string> command(const std::vector<std::string>& fields) const;

    std::string m_capture;
    unsigned short m_port;
    std::string m_keyLog;
};

// The field of a LinkMessage's part as the Protobuf dissector names it:
// wireField("LinkData", "channel_id") is pbf.kv.accessory.wire.LinkData.channel_id.
std::string wireField(const std::string& message, const std::string& field);

// Bytes as tshark shows a bytes field: lowercase hex.
std::string hex(const std::string& bytes);

}  // namespace KvTest

#endif
