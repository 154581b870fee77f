-- Wireshark dissector for the line between a test station and a head unit's engineering service.
--
-- Copy it into Wireshark's folder for personal Lua plugins, or: tshark -X lua_script:engineering.lua -r trace.pcapng
-- It takes captures of link type USER0, one frame or more per packet, as engineering-station writes them.
-- Filters: engineering.key == "tuner.play", engineering.from_unit == 1, engineering.tuner.play.frequency > 8750,
-- engineering.checksum.bad == 1, engineering.time > 0.1
-- A request shows its reply (engineering.response_in) and a missing one (engineering.expert.no_reply) only when the
-- capture is read twice, as Wireshark does and tshark with -2.

local groups = {}

local engineering = Proto("engineering", "Engineering station protocol")

local f = engineering.fields
f.length = ProtoField.uint8("engineering.length", "Length", base.DEC)
f.cmd_one = ProtoField.uint8("engineering.cmd_one", "Command group", base.HEX)
f.cmd_two = ProtoField.uint8("engineering.cmd_two", "Command", base.HEX)
f.group = ProtoField.string("engineering.group", "Group")
f.key = ProtoField.string("engineering.key", "Name")
f.from_unit = ProtoField.bool("engineering.from_unit", "From the head unit")
f.params = ProtoField.bytes("engineering.params", "Parameters")
f.rest = ProtoField.bytes("engineering.rest", "Bytes beyond the known fields")
f.padding = ProtoField.uint8("engineering.padding", "Padding", base.HEX)
f.checksum = ProtoField.uint16("engineering.checksum", "Checksum", base.HEX)
f.checksum_bad = ProtoField.bool("engineering.checksum.bad", "Checksum is wrong")
f.response_in = ProtoField.framenum("engineering.response_in", "Reply in", base.NONE, frametype.RESPONSE)
f.response_to = ProtoField.framenum("engineering.response_to", "Reply to", base.NONE, frametype.REQUEST)
f.time = ProtoField.relative_time("engineering.time", "Time from the request")

local bad_checksum = ProtoExpert.new("engineering.expert.checksum", "The checksum is wrong", expert.group.CHECKSUM,
  expert.severity.ERROR)
local out_of_range = ProtoExpert.new("engineering.expert.range", "The value is out of its range",
  expert.group.PROTOCOL, expert.severity.WARN)
local unusual = ProtoExpert.new("engineering.expert.unusual", "The value is unusual", expert.group.PROTOCOL,
  expert.severity.NOTE)
local cut_short = ProtoExpert.new("engineering.expert.short", "The frame ends before this field",
  expert.group.MALFORMED, expert.severity.WARN)
local left_over = ProtoExpert.new("engineering.expert.rest", "More bytes than the known fields take",
  expert.group.PROTOCOL, expert.severity.NOTE)
local no_frame = ProtoExpert.new("engineering.expert.garbage", "Bytes outside of frames", expert.group.MALFORMED,
  expert.severity.NOTE)
local no_reply = ProtoExpert.new("engineering.expert.no_reply", "The capture has no reply", expert.group.SEQUENCE,
  expert.severity.WARN)
engineering.experts = { bad_checksum, out_of_range, unusual, cut_short, left_over, no_frame, no_reply }

local makers = {
  u8 = ProtoField.uint8, u16be = ProtoField.uint16, u24be = ProtoField.uint24, u32be = ProtoField.uint32,
  i32be = ProtoField.int32,
}

-- A field of the same name may stand in a request and in its reply: one filter for both.
local made = {}
local function proto_field(prefix, field)
  local abbreviation = ("engineering." .. prefix .. "." .. field.name):gsub("-", "_")
  if made[abbreviation] then return made[abbreviation] end
  local label = field.unit and (field.name .. " (" .. field.unit .. ")") or field.name
  local result
  if makers[field.type] then
    result = makers[field.type](abbreviation, label, base.DEC, field.choices)
  elseif field.type == "bytes" then
    result = ProtoField.bytes(abbreviation, label, base.SPACE)
  else
    result = ProtoField.string(abbreviation, label)
  end
  made[abbreviation] = result
  f["x_" .. abbreviation] = result
  return result
end

local known = {}
for _, entry in ipairs(frames) do
  local id = entry[1] * 256 + entry[2]
  for _, field in ipairs(entry[4]) do
    field.proto = proto_field(entry[3], field)
    for _, inner in ipairs(field.fields or {}) do
      inner.proto = proto_field(entry[3] .. "." .. field.name, inner)
    end
  end
  -- The usual meaning of a code stands first.
  known[id] = known[id] or entry
end

local function number(buffer, field)
  if field.type == "i32be" then return buffer:int() end
  return buffer:uint()
end

local function add_number(tree, buffer, field)
  local item = tree:add(field.proto, buffer)
  local value = number(buffer, field)
  local named = field.choices and field.choices[value]
  if value < field.minimum or value > field.maximum or (field.closed and not named) then
    item:add_proto_expert_info(out_of_range)
  end
  return value, named and (value .. " (" .. named .. ")") or tostring(value)
end

local function add_records(tree, params, offset, field, count)
  local size = 0
  for _, inner in ipairs(field.fields) do size = size + inner.size end
  local present = math.min(count, math.floor((params:len() - offset) / size))
  for i = 1, present do
    local record = tree:add(params(offset, size), field.name .. " " .. i)
    for _, inner in ipairs(field.fields) do
      add_number(record, params(offset, inner.size), inner)
      offset = offset + inner.size
    end
  end
  if present < count then tree:add_proto_expert_info(cut_short) end
  return offset, present .. " of " .. count
end

-- Adds the fields to the tree and returns them as one text.
local function add_fields(tree, params, entry, from_unit)
  local offset, texts, last = 0, {}, 0
  local length = params and params:len() or 0
  for _, field in ipairs(entry[4]) do
    local size = field.size
    local text
    if field.type == "records" then
      if params then offset, text = add_records(tree, params, offset, field, last) end
    elseif size then
      if offset + size > length then
        if not field.optional or offset < length then tree:add_proto_expert_info(cut_short) end
        break
      end
      last, text = add_number(tree, params(offset, size), field)
      offset = offset + size
    elseif offset < length then
      local count = length - offset
      local value = params(offset, count)
      local item = tree:add(field.proto, value)
      if count < field.minimum or count > field.maximum then
        item:add_proto_expert_info(field.lenient and unusual or out_of_range)
      end
      text = field.type == "bytes" and tostring(value:bytes()) or '"' .. value:string() .. '"'
      offset = length
    elseif field.minimum > 0 and not field.optional then
      tree:add_proto_expert_info(cut_short)
    end
    if text then texts[#texts + 1] = field.name .. "=" .. text end
  end
  if offset < length then
    local item = tree:add(f.rest, params(offset))
    if from_unit then item:add_proto_expert_info(left_over) end
  end
  return table.concat(texts, " ")
end

local function checksum_of(buffer, length)
  local sum = 0
  for i = 3, 3 + length do sum = sum + buffer(i, 1):uint() end
  return (-sum) % 65536
end

-- The first pass, in the order of the capture, finds the pairs; they are kept by packet and place in it. A capture of
-- several lines is taken for one: in the first pass, tshark does not tell a packet's interface.
local kept = 16
local requests, links = {}, {}

function engineering.init()
  requests, links = {}, {}
end

-- Returns the latest request that the frame answers; when that one has its reply, the latest before it that has none.
local function find_request(id, size)
  local latest
  for i = #requests, 1, -1 do
    local most = requests[i].replies[id]
    if most and size <= most then
      if not requests[i].response_in then return requests[i] end
      latest = latest or requests[i]
    end
  end
  return latest
end

local function link(pinfo, from_unit, id, entry, size)
  if from_unit then
    local request = find_request(id, size)
    if not request then return nil end
    request.response_in = request.response_in or pinfo.number
    return { response_to = request.number, time = pinfo.rel_ts - request.at }
  end
  if not (entry and entry.replies) then return nil end
  local request = { number = pinfo.number, at = pinfo.rel_ts, replies = entry.replies, silent = entry.silent,
    due = size >= entry.minimum }
  requests[#requests + 1] = request
  if #requests > kept then table.remove(requests, 1) end
  return request
end

local function add_link(tree, pinfo, one)
  if one.response_to then
    tree:add(f.response_to, one.response_to):set_generated()
    local seconds = math.floor(one.time)
    tree:add(f.time, NSTime.new(seconds, math.floor((one.time - seconds) * 1e9 + 0.5))):set_generated()
  elseif one.response_in then
    tree:add(f.response_in, one.response_in):set_generated()
  elseif pinfo.visited and one.due then
    tree:add_proto_expert_info(no_reply, "The capture has no reply" ..
      (one.silent and ("; none comes " .. one.silent) or ""))
  end
end

-- Dissects the frame at `place` in the packet, the buffer's beginning; returns its length and what it says, or nil when
-- there is none.
local function dissect_frame(buffer, pinfo, tree, place)
  if buffer:len() < 8 or buffer(0, 2):uint() ~= 0x2AA2 then return nil end
  local length = buffer(3, 1):uint()
  if length < 2 or length == 255 then return nil end
  local padded = length + length % 2
  local total = padded + 6
  if buffer:len() < total then return nil end

  local one, two = buffer(4, 1):uint(), buffer(5, 1):uint()
  local from_unit = one >= 0x80
  local entry = known[one * 256 + two]
  local branch = tree:add(engineering, buffer(0, total))
  branch:add(f.length, buffer(3, 1))
  branch:add(f.cmd_one, buffer(4, 1))
  branch:add(f.cmd_two, buffer(5, 1))
  local group = groups[one % 128]
  if group then branch:add(f.group, buffer(4, 1), group):set_generated() end
  branch:add(f.from_unit, buffer(4, 1), from_unit):set_generated()
  local text = string.format("%02X %02X", one, two)
  local params = length > 2 and buffer(6, length - 2) or nil
  if params then branch:add(f.params, params) end
  if entry then
    branch:add(f.key, buffer(4, 2), entry[3]):set_generated()
    local values = add_fields(branch, params and params:tvb(), entry, from_unit)
    text = values == "" and entry[3] or entry[3] .. " " .. values
  elseif params then
    text = text .. " [" .. tostring(params:bytes()) .. "]"
  end
  if padded > length then branch:add(f.padding, buffer(4 + length, 1)) end
  local expected = checksum_of(buffer, length)
  local item = branch:add(f.checksum, buffer(total - 2, 2))
  local bad = buffer(total - 2, 2):uint() ~= expected or (padded > length and buffer(4 + length, 1):uint() ~= 0)
  branch:add(f.checksum_bad, buffer(total - 2, 2), bad):set_generated()
  if bad then
    item:add_proto_expert_info(bad_checksum, string.format("The checksum should be %04X", expected))
    text = text .. " [checksum is wrong]"
  else
    local key = pinfo.number .. ":" .. place
    if not pinfo.visited then links[key] = link(pinfo, from_unit, one * 256 + two, entry, length - 2) end
    if links[key] then add_link(branch, pinfo, links[key]) end
  end
  branch:append_text(", " .. text)
  return total, (from_unit and "unit: " or "station: ") .. text
end

function engineering.dissector(buffer, pinfo, tree)
  pinfo.cols.protocol = "ENGINEERING"
  local offset, garbage, texts = 0, nil, {}
  local function close_garbage()
    if garbage then
      tree:add(engineering, buffer(garbage, offset - garbage), "Bytes outside of frames")
        :add_proto_expert_info(no_frame)
      garbage = nil
    end
  end
  while offset < buffer:len() do
    local rest = buffer(offset):tvb()
    local is_frame = rest:len() >= 8 and rest(0, 2):uint() == 0x2AA2
    local taken, text
    if is_frame then
      close_garbage()
      taken, text = dissect_frame(rest, pinfo, tree, offset)
    end
    if taken then
      texts[#texts + 1] = text
      offset = offset + taken
    else
      garbage = garbage or offset
      offset = offset + 1
    end
  end
  close_garbage()
  pinfo.cols.info = table.concat(texts, "; ")
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, engineering)
