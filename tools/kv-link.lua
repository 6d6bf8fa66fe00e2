-- The device link of kv-accessoryd in Wireshark and tshark.
--
-- Two linked daemons exchange frames over TLS 1.3: a 4-byte big-endian
-- length, then that many bytes of one `LinkMessage` (accessory/PROTOCOL.md,
-- accessory/protocol/kv_accessory.proto). This dissector sits on the
-- decrypted application data of the link, splits it into frames (a frame
-- may span TLS records and TCP segments; it is reassembled first) and hands
-- each frame's message to Wireshark's own Protobuf dissector, which decodes
-- it by field name from the .proto file.
--
-- Use (docs/debugging.md, "Capturing the link"):
--   tshark -r link.pcapng -X lua_script:tools/kv-link.lua \
--     -o kvlink.port:PORT -o tls.keylog_file:keys.log \
--     -o 'uat:protobuf_search_paths:"/path/to/accessory/protocol","TRUE"' \
--     -o protobuf.pbf_as_hf:TRUE -V -Y kvlink
-- PORT is the listening daemon's link port (<device>/accessoryd.port). In
-- Wireshark: load the script (Lua plug-in folder, or -X lua_script:), set
-- Preferences > Protocols > KVLINK > Link port, add accessory/protocol to
-- Preferences > Protocols > Protobuf > Protobuf search paths (with "Load
-- all files"), and name the key log in Preferences > Protocols > TLS.
-- "Decode As" works too: TCP port -> TLS, then TLS port -> KVLINK (or TCP
-- port -> KVLINK for a link started with --insecure). The Info column names
-- each frame's body from the .proto file (Preferences > Protocols > KVLINK >
-- Protocol file; by default the repository's, beside this script).

local kvlink = Proto("kvlink", "KV accessory device link")

-- A frame longer than this is refused by the daemons (kMaxFrameSize).
local MAX_FRAME_SIZE = 4 * 1024 * 1024
local HEADER_SIZE = 4
local MESSAGE_TYPE = "kv.accessory.wire.LinkMessage"

local fields = {
    length = ProtoField.uint32("kvlink.length", "Length", base.DEC,
        nil, nil, "Bytes of the message that follows"),
    body = ProtoField.string("kvlink.body", "Body", base.ASCII,
        "The kind of the LinkMessage: the name of its body field"),
    message = ProtoField.bytes("kvlink.message", "Message",
        base.NONE, "The frame's LinkMessage, serialised"),
}
kvlink.fields = { fields.length, fields.body, fields.message }

local experts = {
    too_long = ProtoExpert.new("kvlink.too_long", "Frame longer than 4 MiB: the link is closed",
        expert.group.MALFORMED, expert.severity.ERROR),
    no_protobuf = ProtoExpert.new("kvlink.no_protobuf",
        "No Protobuf dissector: the message is not decoded",
        expert.group.UNDECODED, expert.severity.WARN),
}
kvlink.experts = { experts.too_long, experts.no_protobuf }

kvlink.prefs.port = Pref.uint("Link port", 0,
    "The TCP port of the link (the listening daemon's, <device>/accessoryd.port); 0: none")

local ok, protobuf = pcall(Dissector.get, "protobuf")
if not ok then
    protobuf = nil
end

-- The link's .proto file in the repository that holds this script.
local function repository_proto_file()
    local script = debug.getinfo(1, "S").source:match("^@(.*)$") or ""
    local folder = script:match("^(.*)/[^/]*$") or "."
    return folder .. "/../accessory/protocol/kv_accessory.proto"
end

kvlink.prefs.proto_file = Pref.string("Protocol file", repository_proto_file(),
    "kv_accessory.proto, whose LinkMessage names the bodies in the Info column")

-- The names of LinkMessage's body fields by number, read from the .proto
-- file, for the packet list's Info column; empty when it can't be read.
local function read_body_names(path)
    local names = {}
    local file = io.open(path, "r")
    if file == nil then
        return names
    end
    local text = file:read("*a")
    file:close()
    local message = text:match("message%s+LinkMessage%s*(%b{})") or ""
    for name, number in message:gmatch("[%w_.]+%s+([%w_]+)%s*=%s*(%d+)%s*;") do
        names[tonumber(number)] = name
    end
    return names
end

local body_names = read_body_names(kvlink.prefs.proto_file)

-- The field number of a message's first field (the body of a LinkMessage,
-- which has nothing else): the key's varint, shifted past its wire type.
local function first_field_number(message)
    local key, scale = 0, 1
    for i = 0, math.min(message:len(), 5) - 1 do
        local byte = message(i, 1):uint()
        key = key + (byte % 0x80) * scale
        if byte < 0x80 then
            return math.floor(key / 8)
        end
        scale = scale * 0x80
    end
    return nil
end

-- The name of the message's body, as the Info column shows it.
local function body_name(message)
    local number = first_field_number(message)
    if number == nil then
        return "?"
    end
    return body_names[number] or ("field " .. number)
end

-- Decodes one whole frame: its length, then its message. Returns the name
-- of the message's body.
local function dissect_frame(frame, pinfo, tree)
    local length = frame(0, HEADER_SIZE):uint()
    local item = tree:add(kvlink, frame)
    item:add(fields.length, frame(0, HEADER_SIZE))
    if length == 0 then
        item:append_text(", empty frame")
        return "empty"
    end
    local message = frame(HEADER_SIZE, length)
    local body = body_name(message)
    item:append_text(string.format(", %s (%d bytes)", body, length))
    item:add(fields.body, body)
    item:add(fields.message, message)
    if protobuf == nil then
        item:add_proto_expert_info(experts.no_protobuf)
        return body
    end
    pinfo.private["pb_msg_type"] = "message," .. MESSAGE_TYPE
    protobuf:call(message:tvb(), pinfo, item)
    return body
end

-- The Info column: the bodies of the frames that ended in this packet.
local function show_bodies(pinfo, bodies)
    if #bodies > 0 then
        pinfo.cols.protocol = "KV-LINK"
        pinfo.cols.info = table.concat(bodies, ", ")
    end
end

-- Splits the application data into frames. What ends in a partial frame is
-- asked of the lower layer again, together with what comes next.
function kvlink.dissector(tvb, pinfo, tree)
    local total = tvb:len()
    local offset = 0
    local bodies = {}
    while offset < total do
        local remaining = total - offset
        if remaining < HEADER_SIZE then
            pinfo.desegment_offset = offset
            pinfo.desegment_len = DESEGMENT_ONE_MORE_SEGMENT
            break
        end
        local length = tvb(offset, HEADER_SIZE):uint()
        if length > MAX_FRAME_SIZE then
            local item = tree:add(kvlink, tvb(offset))
            item:add(fields.length, tvb(offset, HEADER_SIZE))
            item:add_proto_expert_info(experts.too_long)
            bodies[#bodies + 1] = "frame too long"
            break
        end
        if remaining < HEADER_SIZE + length then
            pinfo.desegment_offset = offset
            pinfo.desegment_len = HEADER_SIZE + length - remaining
            break
        end
        bodies[#bodies + 1] = dissect_frame(tvb(offset, HEADER_SIZE + length):tvb(), pinfo, tree)
        offset = offset + HEADER_SIZE + length
    end
    show_bodies(pinfo, bodies)
    return total
end

-- The link's port: TCP hands it to TLS, and TLS its decrypted data to this
-- dissector. Both tables offer the dissector for "Decode As" too.
local tcp_ports = DissectorTable.get("tcp.port")
local tls_ports = DissectorTable.get("tls.port")
local tls = Dissector.get("tls")
local registered_port = 0

-- Follows the port from the old one to the new one.
local function register_port()
    if registered_port == kvlink.prefs.port then
        return
    end
    if registered_port ~= 0 then
        tcp_ports:remove(registered_port, tls)
        tls_ports:remove(registered_port, kvlink)
    end
    registered_port = kvlink.prefs.port
    if registered_port ~= 0 then
        tcp_ports:add(registered_port, tls)
        tls_ports:add(registered_port, kvlink)
    end
end

function kvlink.prefs_changed()
    register_port()
    body_names = read_body_names(kvlink.prefs.proto_file)
end

tcp_ports:add_for_decode_as(kvlink)
tls_ports:add_for_decode_as(kvlink)
