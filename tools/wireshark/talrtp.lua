-- Shows talrtp's FEC packets and native RTCP in Wireshark and tshark.
--
--   tshark -X lua_script:tools/wireshark/talrtp.lua -r capture.pcap -V
--   wireshark: copy this file into the folder "Personal Lua Plugins" (Help, About, Folders)
--
-- An FEC packet is known by its payload type, on any UDP port. The preferences choose that type (111) and the
-- scheme, XOR or Reed-Solomon; nothing in a packet tells the scheme.
--
--   -o talrtp.fec_scheme:XOR   -o talrtp.fec_payload_type:111   -o talrtp.fec_ports:5006
--   -o talrtp.rtcp_ports:5005
--
-- `fec_ports` claims ports, which helps where another dissector claims them first. Media packets on such a port
-- go to the RTP dissector. `rtcp_ports` names the ports that carry native RTCP, whose length field counts all
-- words; RFC 3550's counts one less, and no packet says which it is. By "Decode As" a port becomes one of either
-- kind as well: talrtp or talrtp_rtcp.
--
-- The layouts are those of docs/wire-formats.md; how RTCP is read, docs/rtcp.md.

local RTP_HEADER = 12
local XOR_HEADER = 12
local RS_HEADER = 8
local MASK_BITS = 24

local XOR, REED_SOLOMON = 0, 1
local scheme_names = { { 1, "XOR", XOR }, { 2, "Reed-Solomon", REED_SOLOMON } }

local fec = Proto("talrtp", "talrtp FEC")
local rtcp = Proto("talrtp_rtcp", "talrtp native RTCP")

fec.prefs.fec_scheme = Pref.enum("FEC scheme", REED_SOLOMON, "How FEC packets are read", scheme_names, false)
fec.prefs.fec_payload_type = Pref.uint("FEC payload type", 111, "Payload type of FEC packets, 0 to 127")
fec.prefs.fec_ports = Pref.range("FEC ports", "", "UDP ports that carry FEC packets, besides known by type", 65535)
fec.prefs.rtcp_ports = Pref.range("Native RTCP ports", "", "UDP ports that carry native RTCP", 65535)

-- Fields -----------------------------------------------------------------------------------------------------

local f = {
    version = ProtoField.uint8("talrtp.version", "Version", base.DEC, nil, 0xc0),
    p = ProtoField.bool("talrtp.p", "P", 8, nil, 0x20),
    x = ProtoField.bool("talrtp.x", "X", 8, nil, 0x10),
    cc = ProtoField.uint8("talrtp.cc", "CC", base.DEC, nil, 0x0f),
    m = ProtoField.bool("talrtp.m", "M", 8, nil, 0x80),
    pt = ProtoField.uint8("talrtp.payload_type", "FEC payload type", base.DEC, nil, 0x7f),
    seq = ProtoField.uint16("talrtp.sequence", "FEC sequence number", base.DEC),
    timestamp = ProtoField.uint32("talrtp.timestamp", "Latest timestamp of the protected packets", base.DEC),
    ssrc = ProtoField.uint32("talrtp.ssrc", "SSRC", base.HEX),
    base = ProtoField.uint16("talrtp.sn_base", "SN base", base.DEC),
    protected = ProtoField.uint16("talrtp.protected", "Protected packet", base.DEC),
    xor_length = ProtoField.uint16("talrtp.xor.length_recovery", "Length recovery", base.DEC),
    xor_e = ProtoField.bool("talrtp.xor.e", "E", 8, nil, 0x80),
    xor_pt = ProtoField.uint8("talrtp.xor.payload_type_recovery", "PT recovery", base.DEC, nil, 0x7f),
    xor_mask = ProtoField.uint24("talrtp.xor.mask", "Mask", base.HEX),
    xor_ts = ProtoField.uint32("talrtp.xor.timestamp_recovery", "TS recovery", base.DEC),
    xor_parity = ProtoField.bytes("talrtp.xor.parity", "Parity of the packets from byte 12 on"),
    rs_length = ProtoField.uint16("talrtp.rs.recover_length", "Recover length", base.DEC),
    rs_index = ProtoField.uint8("talrtp.rs.index", "Index of this FEC packet", base.DEC),
    rs_count = ProtoField.uint8("talrtp.rs.count", "FEC packets of the group", base.DEC),
    rs_media = ProtoField.uint8("talrtp.rs.media", "Media packets of the group", base.DEC),
    rs_zero = ProtoField.uint8("talrtp.rs.zero", "Always 0", base.DEC),
    rs_first = ProtoField.uint16("talrtp.rs.first_sequence", "The group's first FEC packet", base.DEC),
    rs_parity = ProtoField.bytes("talrtp.rs.parity", "Parity block"),
}
fec.fields = f

local e = {
    cut = ProtoExpert.new("talrtp.cut", "The packet ends within its header", expert.group.MALFORMED,
        expert.severity.ERROR),
    media = ProtoExpert.new("talrtp.cut_media", "No FEC packet, and no whole RTP packet", expert.group.MALFORMED,
        expert.severity.ERROR),
    mask = ProtoExpert.new("talrtp.xor.no_packet", "The mask names no packet", expert.group.PROTOCOL,
        expert.severity.WARN),
    group = ProtoExpert.new("talrtp.rs.no_group", "Index, count and media packets make no group",
        expert.group.PROTOCOL, expert.severity.WARN),
}
fec.experts = e

local type_names = {
    [200] = "SR", [201] = "RR", [202] = "SDES", [203] = "BYE", [204] = "APP", [205] = "RTPFB", [206] = "PSFB",
}
local item_names = {
    [1] = "CNAME", [2] = "NAME", [3] = "EMAIL", [4] = "PHONE", [5] = "LOC", [6] = "TOOL", [7] = "NOTE", [8] = "PRIV",
}

local r = {
    packet = ProtoField.bytes("talrtp_rtcp.packet", "Packet"),
    version = ProtoField.uint8("talrtp_rtcp.version", "Version", base.DEC, nil, 0xc0),
    padding = ProtoField.bool("talrtp_rtcp.padding", "Padding", 8, nil, 0x20),
    count = ProtoField.uint8("talrtp_rtcp.count", "Count", base.DEC, nil, 0x1f),
    subtype = ProtoField.uint8("talrtp_rtcp.subtype", "Subtype", base.DEC, nil, 0x1f),
    type = ProtoField.uint8("talrtp_rtcp.type", "Packet type", base.DEC, type_names),
    length = ProtoField.uint16("talrtp_rtcp.length", "Length in words, the header's included", base.DEC),
    ssrc = ProtoField.uint32("talrtp_rtcp.ssrc", "SSRC", base.HEX),
    ntp_seconds = ProtoField.uint32("talrtp_rtcp.sr.ntp_seconds", "NTP seconds", base.DEC),
    ntp_fraction = ProtoField.uint32("talrtp_rtcp.sr.ntp_fraction", "NTP fraction", base.DEC),
    rtp_timestamp = ProtoField.uint32("talrtp_rtcp.sr.rtp_timestamp", "RTP timestamp", base.DEC),
    packets = ProtoField.uint32("talrtp_rtcp.sr.packets", "Packets sent", base.DEC),
    bytes = ProtoField.uint32("talrtp_rtcp.sr.bytes", "Payload bytes sent", base.DEC),
    block_ssrc = ProtoField.uint32("talrtp_rtcp.block.ssrc", "SSRC reported on", base.HEX),
    fraction = ProtoField.uint8("talrtp_rtcp.block.fraction_lost", "Fraction lost, of 256", base.DEC),
    lost = ProtoField.int24("talrtp_rtcp.block.lost", "Packets lost", base.DEC),
    highest = ProtoField.uint32("talrtp_rtcp.block.highest", "Extended highest sequence number", base.DEC),
    jitter = ProtoField.uint32("talrtp_rtcp.block.jitter", "Jitter", base.DEC),
    last_sr = ProtoField.uint32("talrtp_rtcp.block.last_sr", "Last SR", base.HEX),
    delay = ProtoField.uint32("talrtp_rtcp.block.delay", "Delay since last SR, in 1/65536 s", base.DEC),
    item_ssrc = ProtoField.uint32("talrtp_rtcp.item.ssrc", "SSRC", base.HEX),
    item_type = ProtoField.uint8("talrtp_rtcp.item.type", "Item", base.DEC, item_names),
    item_length = ProtoField.uint8("talrtp_rtcp.item.length", "Text length", base.DEC),
    item_text = ProtoField.string("talrtp_rtcp.item.text", "Text"),
    bye_ssrc = ProtoField.uint32("talrtp_rtcp.bye.ssrc", "SSRC that leaves", base.HEX),
    name = ProtoField.string("talrtp_rtcp.app.name", "Name"),
    data = ProtoField.bytes("talrtp_rtcp.app.data", "Data, with the padding to a word"),
    media_ssrc = ProtoField.uint32("talrtp_rtcp.fb.media_ssrc", "SSRC of the media source", base.HEX),
    fci = ProtoField.bytes("talrtp_rtcp.fb.fci", "Feedback control information"),
}
rtcp.fields = r

local re = {
    cut = ProtoExpert.new("talrtp_rtcp.cut", "The packet ends within a field or before its length",
        expert.group.MALFORMED, expert.severity.ERROR),
    no_words = ProtoExpert.new("talrtp_rtcp.no_words", "A packet declares no word", expert.group.MALFORMED,
        expert.severity.ERROR),
    foreign = ProtoExpert.new("talrtp_rtcp.foreign", "No RTCP packet: is this RFC 3550's form?",
        expert.group.PROTOCOL, expert.severity.WARN),
}
rtcp.experts = re

-- A cursor over the bytes of one packet. Its first field that does not fit is reported; every later one is
-- skipped, so that no layout needs a length check of its own. --------------------------------------------------

local Reader = {}
Reader.__index = Reader

local function reader(tvb, position, limit, cut_expert)
    return setmetatable({ tvb = tvb, position = position, limit = limit, cut = cut_expert, is_cut = false }, Reader)
end

function Reader:left()
    return self.limit - self.position
end

-- Returns a range of `size` bytes and steps over it, or nil.
function Reader:take(tree, size)
    if self.is_cut then
        return nil
    end
    if self:left() < size then
        self.is_cut = true
        tree:add_proto_expert_info(self.cut)
        return nil
    end
    local range = self.tvb:range(self.position, size)
    self.position = self.position + size
    return range
end

-- Adds each of `fields` over the same `size` bytes. Returns their value, or 0.
function Reader:add(tree, size, ...)
    local range = self:take(tree, size)
    if not range then
        return 0
    end
    for _, field in ipairs({ ... }) do
        tree:add(field, range)
    end
    return range:uint()
end

-- Adds bytes as far as there are any.
function Reader:add_bytes(tree, size, field)
    local there = math.min(size, self.is_cut and 0 or self:left())
    if there > 0 then
        tree:add(field, self:take(tree, there))
    end
end

-- FEC --------------------------------------------------------------------------------------------------------

local function add_protected(tree, number)
    tree:add(f.protected, number % 65536):set_generated()
end

local function dissect_xor(read, tree)
    local base = read:add(tree, 2, f.base)
    read:add(tree, 2, f.xor_length)
    read:add(tree, 1, f.xor_e, f.xor_pt)
    local mask = read:add(tree, 3, f.xor_mask)
    if read.is_cut then
        return "cut"
    end
    local count = 0
    for distance = 0, MASK_BITS - 1 do
        if math.floor(mask / 2 ^ (MASK_BITS - 1 - distance)) % 2 == 1 then
            add_protected(tree, base + distance)
            count = count + 1
        end
    end
    if count == 0 then
        tree:add_proto_expert_info(e.mask)
    end
    read:add(tree, 4, f.xor_ts)
    read:add_bytes(tree, read:left(), f.xor_parity)
    return string.format("XOR, %d packets from %d on", count, base)
end

local function dissect_rs(read, tree, sequence)
    local base = read:add(tree, 2, f.base)
    read:add(tree, 2, f.rs_length)
    local index = read:add(tree, 1, f.rs_index)
    local count = read:add(tree, 1, f.rs_count)
    local media = read:add(tree, 1, f.rs_media)
    read:add(tree, 1, f.rs_zero)
    if read.is_cut then
        return "cut"
    end
    if index >= count or media == 0 or media + count > 255 then
        tree:add_proto_expert_info(e.group)
    end
    for distance = 0, media - 1 do
        add_protected(tree, base + distance)
    end
    tree:add(f.rs_first, (sequence - index) % 65536):set_generated()
    read:add_bytes(tree, read:left(), f.rs_parity)
    return string.format("Reed-Solomon, %d of %d over %d packets from %d on", index + 1, count, media, base)
end

local function dissect_fec(tvb, pinfo, root)
    pinfo.cols.protocol = "talrtp FEC"
    local tree = root:add(fec, tvb())
    local read = reader(tvb, 0, tvb:len(), e.cut)
    read:add(tree, 1, f.version, f.p, f.x, f.cc)
    read:add(tree, 1, f.m, f.pt)
    local sequence = read:add(tree, 2, f.seq)
    read:add(tree, 4, f.timestamp)
    read:add(tree, 4, f.ssrc)
    local text = fec.prefs.fec_scheme == XOR and dissect_xor(read, tree) or dissect_rs(read, tree, sequence)
    pinfo.cols.info = string.format("FEC %d: %s", sequence, text)
    tree:append_text(string.format(", %s", text))
    return tvb:len()
end

-- Native RTCP ------------------------------------------------------------------------------------------------

local function dissect_blocks(read, tree, count)
    for i = 1, count do
        if read.is_cut then
            return
        end
        local block = tree:add(rtcp, read.tvb:range(read.position, math.min(24, read:left())),
            string.format("Report block %d", i))
        read:add(block, 4, r.block_ssrc)
        read:add(block, 1, r.fraction)
        read:add(block, 3, r.lost)
        read:add(block, 4, r.highest)
        read:add(block, 4, r.jitter)
        read:add(block, 4, r.last_sr)
        read:add(block, 4, r.delay)
    end
end

local function dissect_sr(read, tree, count)
    read:add(tree, 4, r.ssrc)
    read:add(tree, 4, r.ntp_seconds)
    read:add(tree, 4, r.ntp_fraction)
    read:add(tree, 4, r.rtp_timestamp)
    read:add(tree, 4, r.packets)
    read:add(tree, 4, r.bytes)
    dissect_blocks(read, tree, count)
end

local function dissect_rr(read, tree, count)
    read:add(tree, 4, r.ssrc)
    dissect_blocks(read, tree, count)
end

-- Items are read as the library reads them: 6 bytes and the text, rounded up to a word.
local function dissect_sdes(read, tree, count)
    for _ = 1, count do
        if read.is_cut then
            return
        end
        read:add(tree, 4, r.item_ssrc)
        read:add(tree, 1, r.item_type)
        local length = read:add(tree, 1, r.item_length)
        local text = length > 0 and read:take(tree, length)
        if text then
            tree:add(r.item_text, text)
        end
        read.position = math.min(read.position + (-(6 + length)) % 4, read.limit)
    end
end

local function dissect_bye(read, tree, count)
    for _ = 1, count do
        read:add(tree, 4, r.bye_ssrc)
    end
end

local function dissect_app(read, tree)
    read:add(tree, 4, r.ssrc)
    local name = read:take(tree, 4)
    if name then
        tree:add(r.name, name)
    end
    read:add_bytes(tree, read:left(), r.data)
end

local function dissect_feedback(read, tree)
    read:add(tree, 4, r.ssrc)
    read:add(tree, 4, r.media_ssrc)
    read:add_bytes(tree, read:left(), r.fci)
end

local dissect_type = {
    [200] = dissect_sr, [201] = dissect_rr, [202] = dissect_sdes, [203] = dissect_bye, [204] = dissect_app,
    [205] = dissect_feedback, [206] = dissect_feedback,
}

-- Returns the size that the packet at `position` declares and its name; a size of 0 ends the datagram.
local function dissect_packet(tvb, position, root)
    local left = tvb:len() - position
    local words = left >= 4 and tvb:range(position + 2, 2):uint() or 0
    local size = math.min(left, words > 0 and 4 * words or left)
    local tree = root:add(r.packet, tvb:range(position, size))
    local read = reader(tvb, position, position + size, re.cut)
    local first = read:add(tree, 1, r.version, r.padding)
    local type = read:add(tree, 1, r.type)
    read:add(tree, 2, r.length)
    if read.is_cut then
        return 0, "cut"
    end
    if words == 0 then
        tree:add_proto_expert_info(re.no_words)
        return 0, "no words"
    end
    if first < 128 or first > 191 or not dissect_type[type] then
        tree:add_proto_expert_info(re.foreign)
        return 4 * words, "unknown"
    end
    tree:add(type < 204 and r.count or r.subtype, tvb:range(position, 1))
    tree:set_text(string.format("%s, %d words", type_names[type], words))
    dissect_type[type](read, tree, first % 32)
    if 4 * words > left and not read.is_cut then
        tree:add_proto_expert_info(re.cut)
    end
    return 4 * words, type_names[type]
end

function rtcp.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "talrtp RTCP"
    local tree = root:add(rtcp, tvb())
    local names, position = {}, 0
    while position < tvb:len() do
        local size, name = dissect_packet(tvb, position, tree)
        table.insert(names, name)
        if size == 0 then
            break
        end
        position = position + size
    end
    pinfo.cols.info = table.concat(names, " ")
    return tvb:len()
end

-- Which datagram is which --------------------------------------------------------------------------------------

local rtp_dissector = Dissector.get("rtp")

local function is_fec(tvb)
    return tvb:len() >= 2 and math.floor(tvb:range(0, 1):uint() / 64) == 2 and
        tvb:range(1, 1):uint() % 128 == fec.prefs.fec_payload_type
end

function fec.dissector(tvb, pinfo, root)
    if is_fec(tvb) then
        return dissect_fec(tvb, pinfo, root)
    end
    -- That dissector raises an error over a packet that ends within its header.
    local is_whole = pcall(rtp_dissector.call, rtp_dissector, tvb, pinfo, root)
    if not is_whole then
        root:add(fec, tvb()):add_proto_expert_info(e.media)
    end
    return tvb:len()
end

-- Ports that nobody claimed. A datagram shorter than both headers is left to others here: too little says that
-- it is an FEC packet.
fec:register_heuristic("udp", function(tvb, pinfo, root)
    local least = RTP_HEADER + (fec.prefs.fec_scheme == XOR and XOR_HEADER or RS_HEADER)
    if tvb:len() < least or not is_fec(tvb) then
        return false
    end
    dissect_fec(tvb, pinfo, root)
    return true
end)

local udp_ports = DissectorTable.get("udp.port")
udp_ports:add_for_decode_as(fec)
udp_ports:add_for_decode_as(rtcp)

local claimed = { [fec] = "", [rtcp] = "" }

local function claim(protocol, range)
    if claimed[protocol] ~= "" then
        udp_ports:remove(claimed[protocol], protocol)
    end
    if range ~= "" then
        udp_ports:add(range, protocol)
    end
    claimed[protocol] = range
end

function fec.prefs_changed()
    claim(fec, fec.prefs.fec_ports)
    claim(rtcp, fec.prefs.rtcp_ports)
end
