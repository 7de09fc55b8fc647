-- Zel device communication protocol for Wireshark and tshark.
--
--   tshark -X lua_script:zel.lua ...        or copy it to Wireshark's folder of personal Lua plugins
--
-- zel        messages over TCP port 9999 and direct requests over UDP port 38898
-- zel_scan   discovery over UDP ports 38896 (broadcast) and 38897 (multicast, and answers)
--
-- Requests and answers are linked to each other and answers show their round trip; an answer that is not linked has no
-- request in the capture. In tshark the link from a request to its answer needs two passes (-2).

local TCP_PORT = 9999
local DIRECT_PORT = 38898
local BROADCAST_PORT = 38896
local MULTICAST_PORT = 38897

local HEADER_SIZE = 8
local INNER_SIZE = 13
local ADDRESS_SIZE = 8
local MAX_BODY = 10485759
local TOPIC_PORT = 103
local RECORD_LENGTHS_SIZE = 24
local FILE_GROUP, FILE_OFFSET = 0x1002, 1
local IDENTITY_PORT = 101
local READ_IDENTITY, WRITE_IDENTITY = 1, 5

local zel = Proto("zel", "Zel Device Communication Protocol")
local scan = Proto("zel_scan", "Zel Discovery")

local errors = {
  [0] = "No Error", [5] = "disconnected", [4097] = "invalid device identifier", [4098] = "invalid IdGroup",
  [4099] = "invalid IdOffset", [4100] = "invalid packet length", [4101] = "invalid port",
  [4102] = "router port not registered", [4103] = "router port already registered", [4104] = "time-out",
  [4105] = "unknown command", [4106] = "unknown topic", [4107] = "unsupported protocol",
  [4108] = "packet too small", [4109] = "packet too long", [4110] = "serialization error",
  [4111] = "deserialization error", [4112] = "header length mismatch", [4113] = "send error",
  [4114] = "port is reserved", [4115] = "invoke identifier mismatch", [8193] = "invalid handle",
  [8194] = "invalid network adapter", [8195] = "resources exhausted", [8196] = "invalid parameter",
  [8197] = "server not running", [8198] = "invalid request command", [8199] = "invalid buffer length",
  [8200] = "no memory", [8201] = "disk is full", [12288] = "cannot create file", [12289] = "cannot open file",
  [12290] = "no such file", [12291] = "cannot read file", [12292] = "cannot write file",
  [12293] = "invalid file handle", [12294] = "network error in transfer",
}

local f = {
  reserved = ProtoField.uint8("zel.reserved", "Reserved", base.HEX),
  version = ProtoField.uint8("zel.version", "Version", base.DEC, { [0] = "bare payload", [1] = "with inner header" }),
  port = ProtoField.uint16("zel.port", "Router port"),
  length = ProtoField.uint32("zel.length", "Body length"),
  error = ProtoField.uint32("zel.error", "Error", base.DEC, errors),
  invoke_id = ProtoField.uint32("zel.invoke_id", "Invoke identifier"),
  command = ProtoField.uint16("zel.command", "Command", base.DEC),
  inner_reserved = ProtoField.bytes("zel.inner_reserved", "Reserved"),
  id_group = ProtoField.uint32("zel.id_group", "IdGroup", base.HEX),
  id_offset = ProtoField.uint32("zel.id_offset", "IdOffset", base.HEX),
  payload = ProtoField.bytes("zel.payload", "Payload"),
  device_id = ProtoField.string("zel.device_id", "Device identifier"),
  response_in = ProtoField.framenum("zel.response_in", "Answer in frame", base.NONE, frametype.RESPONSE),
  response_to = ProtoField.framenum("zel.response_to", "Answer to the request in frame", base.NONE, frametype.REQUEST),
  time = ProtoField.double("zel.time", "Round trip in ms"),

  verb_length = ProtoField.uint64("zel.topic.verb_length", "Verb length"),
  topic_length = ProtoField.uint64("zel.topic.topic_length", "Topic length"),
  data_length = ProtoField.uint64("zel.topic.data_length", "Data length"),
  verb = ProtoField.string("zel.topic.verb", "Verb"),
  topic = ProtoField.string("zel.topic.name", "Topic"),
  data = ProtoField.bytes("zel.topic.data", "Data"),
  record_group = ProtoField.uint32("zel.topic.id_group", "IdGroup", base.HEX),
  record_offset = ProtoField.uint32("zel.topic.id_offset", "IdOffset", base.HEX),

  file_type = ProtoField.uint8("zel.file.type", "Type", base.DEC, { [1] = "file information", [2] = "chunk" }, 0x7f),
  file_last = ProtoField.bool("zel.file.last", "Last", 8, nil, 0x80),
  file_name_length = ProtoField.uint8("zel.file.name_length", "Name length"),
  file_path_length = ProtoField.uint8("zel.file.path_length", "Remote path length"),
  file_size = ProtoField.uint32("zel.file.size", "File size"),
  file_chunk_size = ProtoField.uint32("zel.file.chunk_size", "Chunk size"),
  file_chunk_count = ProtoField.uint32("zel.file.chunk_count", "Chunk count"),
  file_name = ProtoField.string("zel.file.name", "Name"),
  file_path = ProtoField.string("zel.file.path", "Remote path"),
  file_chunk = ProtoField.uint32("zel.file.chunk", "Chunk number"),
  file_handle = ProtoField.uint32("zel.file.handle", "Device handle"),
  file_data = ProtoField.bytes("zel.file.data", "Data"),
  file_error = ProtoField.uint32("zel.file.error", "Error", base.DEC, errors),
  file_empty = ProtoField.bool("zel.file.empty", "Empty message: the file ended with a whole chunk"),
}
zel.fields = f

local e = {
  header = ProtoExpert.new("zel.bad_header", "Shorter than a header", expert.group.MALFORMED, expert.severity.ERROR),
  length = ProtoExpert.new("zel.bad_length", "Body length of 0 or beyond 10485759: the stream is broken",
    expert.group.MALFORMED, expert.severity.ERROR),
  datagram = ProtoExpert.new("zel.bad_datagram", "Body length is not that of the datagram", expert.group.MALFORMED,
    expert.severity.ERROR),
  version = ProtoExpert.new("zel.bad_version", "Unknown version", expert.group.PROTOCOL, expert.severity.WARN),
  reserved = ProtoExpert.new("zel.bad_reserved", "Reserved byte is not 0", expert.group.PROTOCOL, expert.severity.NOTE),
  inner = ProtoExpert.new("zel.bad_inner", "Body is shorter than its inner header", expert.group.MALFORMED,
    expert.severity.ERROR),
  address = ProtoExpert.new("zel.bad_address", "Request without an address block", expert.group.MALFORMED,
    expert.severity.ERROR),
  record = ProtoExpert.new("zel.bad_record", "Topic record does not fit its message", expert.group.MALFORMED,
    expert.severity.ERROR),
  verb = ProtoExpert.new("zel.bad_verb", "Unknown verb", expert.group.PROTOCOL, expert.severity.WARN),
  file = ProtoExpert.new("zel.bad_file", "File message does not have its size", expert.group.MALFORMED,
    expert.severity.ERROR),
  failed = ProtoExpert.new("zel.failed", "The answer is an error", expert.group.RESPONSE_CODE, expert.severity.NOTE),
  unasked = ProtoExpert.new("zel.unasked", "Answer without a request in this capture", expert.group.SEQUENCE,
    expert.severity.NOTE),
}
zel.experts = e

-- What the first pass finds out: requests that wait for an answer, by conversation and invoke identifier, and the
-- pairs, by frame and such a key.
local waiting, answer_of, request_of = {}, {}, {}

function zel.init()
  waiting, answer_of, request_of = {}, {}, {}
end

-- The same for both directions.
local function conversation_key(message, pinfo)
  local client = tostring(pinfo.src) .. ":" .. pinfo.src_port
  local server = tostring(pinfo.dst) .. ":" .. pinfo.dst_port
  if not message.is_request then client, server = server, client end
  return client .. " " .. server .. " " .. (message.is_direct and "udp " or "tcp ") .. message.invoke_id
end

-- Shows the answer's frame on a request, and on the first pass waits for it.
local function link_request(message, pinfo, tree)
  local key = conversation_key(message, pinfo)
  local mark = pinfo.number .. " " .. key
  if not pinfo.visited then
    waiting[key] = { frame = pinfo.number, time = pinfo.rel_ts, is_file = message.is_file, mark = mark,
      command = message.command, port = message.port, group = message.group }
  end
  if answer_of[mark] then tree:add(f.response_in, answer_of[mark]):set_generated() end
end

-- The request that an answer belongs to, or nil.
local function link_answer(message, pinfo, tree)
  local key = conversation_key(message, pinfo)
  local mark = pinfo.number .. " " .. key
  if not pinfo.visited and waiting[key] then
    request_of[mark] = waiting[key]
    answer_of[waiting[key].mark] = pinfo.number
    waiting[key] = nil
  end
  local request = request_of[mark]
  if not request then
    tree:add_proto_expert_info(e.unasked)
    return nil
  end
  tree:add(f.response_to, request.frame):set_generated()
  tree:add(f.time, (pinfo.rel_ts - request.time) * 1000):set_generated()
  return request
end

-- A 64-bit little-endian length, or nil when it cannot be one: no message has 4 GiB.
local function small_length(range)
  if range(4, 4):le_uint() ~= 0 then return nil end
  return range(0, 4):le_uint()
end

local function dissect_record(range, message, tree)
  local record = tree:add(zel, range, "Topic record")
  local left = range:len() - RECORD_LENGTHS_SIZE
  if left < 0 then
    record:add_proto_expert_info(e.record)
    return
  end
  record:add_le(f.verb_length, range(0, 8))
  record:add_le(f.topic_length, range(8, 8))
  record:add_le(f.data_length, range(16, 8))
  local verb, topic, data = small_length(range(0, 8)), small_length(range(8, 8)), small_length(range(16, 8))
  if not (verb and topic and data and left == verb + topic + data + 11) then
    record:add_proto_expert_info(e.record)
    return
  end
  local at = RECORD_LENGTHS_SIZE
  local verb_item = record:add(f.verb, range(at, verb + 1), range(at, verb + 1):stringz())
  local verb_text = range(at, verb + 1):stringz()
  at = at + verb + 1
  local topic_text = range(at, topic + 1):stringz()
  record:add(f.topic, range(at, topic + 1), topic_text)
  at = at + topic + 1
  if data > 0 then record:add(f.data, range(at, data)) end
  at = at + data + 1
  record:add_le(f.record_group, range(at, 4))
  record:add_le(f.record_offset, range(at + 4, 4))
  if verb_text ~= "pub" and verb_text ~= "sub" and verb_text ~= "unsub" then
    verb_item:add_proto_expert_info(e.verb)
  end
  message.summary = verb_text .. " " .. topic_text
end

local function dissect_file_information(range, message, tree)
  tree:add(f.file_name_length, range(1, 1))
  tree:add(f.file_path_length, range(2, 1))
  tree:add(f.file_size, range(3, 4))
  tree:add(f.file_chunk_size, range(7, 4))
  tree:add(f.file_chunk_count, range(11, 4))
  local name, path = range(1, 1):uint(), range(2, 1):uint()
  if range:len() ~= 15 + name + path then
    tree:add_proto_expert_info(e.file)
    return
  end
  if name > 0 then tree:add(f.file_name, range(15, name)) end
  if path > 0 then tree:add(f.file_path, range(15 + name, path)) end
  message.summary = "File information"
  if path > 0 then message.summary = message.summary .. " " .. range(15 + name, path):string() end
end

local function dissect_file_chunk(range, message, tree)
  tree:add(f.file_chunk, range(1, 4))
  tree:add(f.file_handle, range(5, 4))
  tree:add(f.file_data, range(9))
  message.summary = "File chunk " .. range(1, 4):uint()
end

local function dissect_file_request(range, message, tree)
  local item = tree:add(zel, range, "File message")
  item:add(f.file_last, range(0, 1))
  item:add(f.file_type, range(0, 1))
  local kind = bit.band(range(0, 1):uint(), 0x7f)
  if kind == 1 and range:len() >= 15 then
    dissect_file_information(range, message, item)
  elseif kind == 2 and range:len() > 9 and range:len() <= 9 + 8192 then
    dissect_file_chunk(range, message, item)
  else
    item:add_proto_expert_info(e.file)
  end
end

local function dissect_file_answer(range, message, tree)
  local item = tree:add(zel, range, "File answer")
  item:add(f.file_last, range(0, 1))
  item:add(f.file_type, range(0, 1))
  if range:len() ~= 9 then
    item:add_proto_expert_info(e.file)
    return
  end
  item:add(f.file_handle, range(1, 4))
  local code = item:add(f.file_error, range(5, 4))
  if range(5, 4):uint() ~= 0 then code:add_proto_expert_info(e.failed) end
  message.summary = "File answer"
end

local function device_text(range)
  local parts = {}
  for i = 0, 5 do parts[i + 1] = tostring(range(i, 1):uint()) end
  return table.concat(parts, ".")
end

local function dissect_payload(range, message, request, tree)
  if message.port == TOPIC_PORT then
    dissect_record(range, message, tree)
  elseif message.is_file then
    dissect_file_request(range, message, tree)
  elseif request and request.is_file then
    dissect_file_answer(range, message, tree)
  else
    tree:add(f.payload, range)
    local identity = message.is_direct and message.port == IDENTITY_PORT and range:len() >= 6
    local writes = message.is_request and message.command == WRITE_IDENTITY
    local tells = request and request.command == READ_IDENTITY
    if identity and (writes or tells) then
      tree:add(f.device_id, range(0, 6), device_text(range))
      message.summary = "Device identifier " .. device_text(range)
    end
  end
end

-- The body of a version 1 message.
local function dissect_inner(body, message, pinfo, tree)
  if body:len() < INNER_SIZE then
    tree:add_proto_expert_info(e.inner)
    return
  end
  local error_item = tree:add(f.error, body(0, 4))
  tree:add(f.invoke_id, body(4, 4))
  tree:add(f.command, body(8, 2))
  tree:add(f.inner_reserved, body(10, 3))
  message.error, message.invoke_id, message.command = body(0, 4):uint(), body(4, 4):uint(), body(8, 2):uint()
  if message.error ~= 0 then error_item:add_proto_expert_info(e.failed) end

  local at = INNER_SIZE
  if message.is_request then
    if body:len() < INNER_SIZE + ADDRESS_SIZE then
      tree:add_proto_expert_info(e.address)
      return
    end
    tree:add(f.id_group, body(at, 4))
    tree:add(f.id_offset, body(at + 4, 4))
    message.group = body(at, 4):uint()
    message.is_file = not message.is_direct and message.group == FILE_GROUP and body(at + 4, 4):uint() == FILE_OFFSET
    at = at + ADDRESS_SIZE
  end

  local request
  if message.port ~= TOPIC_PORT then
    if message.is_request then
      link_request(message, pinfo, tree)
    elseif message.is_direct or message.invoke_id ~= 0 then
      request = link_answer(message, pinfo, tree)
    end
  end
  if at < body:len() then
    dissect_payload(body(at), message, request, tree)
  elseif message.is_file then
    tree:add(f.file_empty, true):set_generated()
    message.summary = "File end"
  elseif message.port == TOPIC_PORT then
    tree:add_proto_expert_info(e.record)
  end
end

local function summary(message)
  local text = (message.is_request and "Request" or "Message") .. " port " .. message.port
  if message.invoke_id and message.invoke_id ~= 0 then
    text = (message.is_request and "Request " or "Answer ") .. message.invoke_id .. " port " .. message.port
  end
  if message.error and message.error ~= 0 then text = text .. " error " .. message.error end
  if message.summary then text = text .. " " .. message.summary end
  return text
end

-- One message; `tvb` has all of it, or as much as there is when its length is bad.
local function dissect_message(tvb, pinfo, tree, is_direct)
  local message = { is_direct = is_direct }
  message.is_request = pinfo.dst_port == (is_direct and DIRECT_PORT or TCP_PORT)
  local item = tree:add(zel, tvb())
  if tvb:len() < HEADER_SIZE then
    item:add_proto_expert_info(e.header)
    return
  end
  local reserved = item:add(f.reserved, tvb(0, 1))
  if tvb(0, 1):uint() ~= 0 then reserved:add_proto_expert_info(e.reserved) end
  local version_item = item:add(f.version, tvb(1, 1))
  item:add_le(f.port, tvb(2, 2))
  local length_item = item:add_le(f.length, tvb(4, 4))
  message.port = tvb(2, 2):le_uint()
  local version, length = tvb(1, 1):uint(), tvb(4, 4):le_uint()

  if is_direct and length ~= tvb:len() - HEADER_SIZE then
    length_item:add_proto_expert_info(e.datagram)
  elseif length == 0 or length > MAX_BODY then
    length_item:add_proto_expert_info(e.length)
  elseif version > 1 then
    version_item:add_proto_expert_info(e.version)
    item:add(f.payload, tvb(HEADER_SIZE))
  elseif version == 0 then
    item:add(f.payload, tvb(HEADER_SIZE))
  else
    dissect_inner(tvb(HEADER_SIZE), message, pinfo, item)
  end
  local text = summary(message)
  item:append_text(", " .. text)
  -- What clearing the column left is of an earlier message in the same packet.
  pinfo.cols.info:append((tostring(pinfo.cols.info) == "" and "" or " | ") .. text)
end

-- A bad length ends the framing: what is left of the segment is one message.
local function message_size(tvb, pinfo, offset)
  local length = tvb(offset + 4, 4):le_uint()
  if length == 0 or length > MAX_BODY then return tvb:len() - offset end
  return HEADER_SIZE + length
end

function zel.dissector(tvb, pinfo, tree)
  pinfo.cols.protocol = "ZEL"
  pinfo.cols.info = ""
  if pinfo.port_type == 2 then
    dissect_tcp_pdus(tvb, tree, HEADER_SIZE, message_size, function(part, part_info, part_tree)
      dissect_message(part, part_info, part_tree, false)
      return part:len()
    end)
  else
    dissect_message(tvb, pinfo, tree, true)
  end
  return tvb:len()
end

-- ---- Discovery

local MULTICAST_REQUEST, ANSWER, BROADCAST_REQUEST = 0, 1, 2

local s = {
  type = ProtoField.uint8("zel_scan.type", "Type", base.DEC,
    { [0] = "multicast request", [1] = "answer", [2] = "broadcast request" }),
  reserved = ProtoField.uint32("zel_scan.reserved", "Reserved", base.HEX),
  timestamp = ProtoField.absolute_time("zel_scan.timestamp", "Time stamp", base.UTC),
  response_in = ProtoField.framenum("zel_scan.response_in", "Answer in frame", base.NONE, frametype.RESPONSE),
  response_to = ProtoField.framenum("zel_scan.response_to", "Answer to the request in frame", base.NONE,
    frametype.REQUEST),
  time = ProtoField.double("zel_scan.time", "Round trip in ms"),
}
scan.fields = s

local x = {
  header = ProtoExpert.new("zel_scan.bad_header", "Shorter than a header", expert.group.MALFORMED,
    expert.severity.ERROR),
  type = ProtoExpert.new("zel_scan.bad_type", "Unknown type", expert.group.PROTOCOL, expert.severity.WARN),
  reserved = ProtoExpert.new("zel_scan.bad_reserved", "Reserved word is not 0: receivers drop this",
    expert.group.PROTOCOL, expert.severity.WARN),
  request = ProtoExpert.new("zel_scan.bad_request", "Request is not 9 bytes long", expert.group.MALFORMED,
    expert.severity.WARN),
  document = ProtoExpert.new("zel_scan.bad_document", "Answer is no JSON object", expert.group.MALFORMED,
    expert.severity.ERROR),
  size = ProtoExpert.new("zel_scan.bad_size", "Answer is longer than the 2048 bytes that clients receive",
    expert.group.PROTOCOL, expert.severity.WARN),
}
scan.experts = x

local json = Dissector.get("json")

-- The last request from an address: at its port by multicast, whose answers come to that port, and from anywhere by
-- broadcast, whose answers come to port 38897.
local last_request, answers_to, answered = {}, {}, {}

function scan.init()
  last_request, answers_to, answered = {}, {}, {}
end

local function link_scan_request(kind, pinfo, tree)
  if not pinfo.visited then
    local key = tostring(pinfo.src) .. (kind == MULTICAST_REQUEST and ":" .. pinfo.src_port or "")
    last_request[key] = { frame = pinfo.number, time = pinfo.rel_ts }
  end
  for _, frame in ipairs(answers_to[pinfo.number] or {}) do tree:add(s.response_in, frame):set_generated() end
end

local function later(one, other)
  if one and other then return one.frame > other.frame and one or other end
  return one or other
end

local function link_scan_answer(pinfo, tree)
  if not pinfo.visited then
    local request = last_request[tostring(pinfo.dst) .. ":" .. pinfo.dst_port]
    if pinfo.dst_port == MULTICAST_PORT then request = later(request, last_request[tostring(pinfo.dst)]) end
    if request then
      answered[pinfo.number] = request
      answers_to[request.frame] = answers_to[request.frame] or {}
      table.insert(answers_to[request.frame], pinfo.number)
    end
  end
  local request = answered[pinfo.number]
  if not request then return end
  tree:add(s.response_to, request.frame):set_generated()
  tree:add(s.time, (pinfo.rel_ts - request.time) * 1000):set_generated()
end

local function dissect_answer(tvb, pinfo, tree, item)
  link_scan_answer(pinfo, item)
  if tvb:len() > 2048 then item:add_proto_expert_info(x.size) end
  local is_object = tvb:len() > 9 and tvb(9):string():match("^%s*{.*}%s*$")
  if not is_object then
    item:add_proto_expert_info(x.document)
    return
  end
  json:call(tvb(9):tvb(), pinfo, tree)
end

function scan.dissector(tvb, pinfo, tree)
  pinfo.cols.protocol = "ZEL-SCAN"
  local item = tree:add(scan, tvb())
  if tvb:len() < 9 then
    item:add_proto_expert_info(x.header)
    pinfo.cols.info = "Malformed: shorter than a header"
    return tvb:len()
  end
  local kind = tvb(0, 1):uint()
  local type_item = item:add(s.type, tvb(0, 1))
  local reserved = item:add(s.reserved, tvb(1, 4))
  item:add(s.timestamp, tvb(5, 4))
  if tvb(1, 4):uint() ~= 0 then reserved:add_proto_expert_info(x.reserved) end
  local text = "Unknown type " .. kind
  if kind == ANSWER then
    text = "Answer"
    dissect_answer(tvb, pinfo, tree, item)
  elseif kind == MULTICAST_REQUEST or kind == BROADCAST_REQUEST then
    text = kind == MULTICAST_REQUEST and "Multicast request" or "Broadcast request"
    if tvb:len() ~= 9 then item:add_proto_expert_info(x.request) end
    link_scan_request(kind, pinfo, item)
  else
    type_item:add_proto_expert_info(x.type)
  end
  item:append_text(", " .. text)
  pinfo.cols.protocol = "ZEL-SCAN"
  pinfo.cols.info = text
  return tvb:len()
end

DissectorTable.get("tcp.port"):add(TCP_PORT, zel)
local udp = DissectorTable.get("udp.port")
udp:add(DIRECT_PORT, zel)
udp:add(BROADCAST_PORT, scan)
udp:add(MULTICAST_PORT, scan)
