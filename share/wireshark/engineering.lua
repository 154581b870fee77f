-- Wireshark dissector for the line between a test station and a head unit's engineering service.
--
-- Copy it into Wireshark's folder for personal Lua plugins, or: tshark -X lua_script:engineering.lua -r trace.pcapng
-- It takes captures of link type USER0, one frame or more per packet, as engineering-station writes them.
-- Filters: engineering.key == "tuner.play", engineering.from_unit, engineering.tuner.play.frequency > 8750,
-- engineering.checksum.bad

local groups = {
    [15] = "Test mode",
    [0] = "Source",
    [1] = "EQ and audio",
    [2] = "Tuner",
    [3] = "Media",
    [4] = "Bluetooth",
    [5] = "GPS",
    [6] = "Hard keys and display",
    [7] = "Information acquisition",
    [9] = "Car state",
    [10] = "Head-unit information write",
    [14] = "Other",
    [16] = "Wi-Fi connection",
    [17] = "Phone connected",
}
local frames = {
    { 15, 0, "test.set-mode", {{ name = "mode", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255, optional = true }} },
    { 15, 1, "test.media-ready", {} },
    { 15, 255, "test.mode", {} },
    { 0, 0, "source.request", {{ name = "source", type = "u8", minimum = 0, maximum = 255 }} },
    { 0, 1, "source.current", {} },
    { 1, 0, "audio.set-volume", {{ name = "volume", type = "u8", minimum = 0, maximum = 255 }} },
    { 1, 1, "audio.volume", {} },
    { 1, 13, "audio.set-fader-balance", {{ name = "fader", type = "u8", minimum = 0, maximum = 255 }, { name = "balance", type = "u8", minimum = 0, maximum = 255 }} },
    { 1, 19, "audio.hardware-mute", {} },
    { 1, 23, "audio.set-eq-switch", {{ name = "value", type = "u8", minimum = 0, maximum = 255, optional = true }} },
    { 1, 24, "audio.eq-switch", {} },
    { 2, 0, "tuner.play", {{ name = "frequency", type = "u16be", unit = "10 kHz on FM", minimum = 0, maximum = 65535 }} },
    { 2, 1, "tuner.frequency", {} },
    { 2, 2, "tuner.switch-band", {{ name = "band", type = "u8", choices = { [0] = "fm", [1] = "band-0", [2] = "band-4", [5] = "band-3", }, minimum = 0, maximum = 255 }} },
    { 2, 3, "tuner.band", {} },
    { 2, 4, "tuner.tune", {{ name = "action", type = "u8", choices = { [0] = "seek-down", [1] = "seek-up", [2] = "store", [3] = "scan", }, minimum = 0, maximum = 255, closed = true }} },
    { 2, 11, "tuner.set-rds-af", {{ name = "setting", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255 }} },
    { 2, 12, "tuner.set-rds-ta", {{ name = "setting", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255 }} },
    { 2, 18, "tuner.radio-antenna", {} },
    { 2, 19, "tuner.dab-antenna", {} },
    { 2, 23, "tuner.traffic-announcement", {} },
    { 2, 24, "tuner.fm-frequency", {} },
    { 3, 0, "media.action-1-2", {{ name = "select", type = "u8", choices = { [0] = "action-1", [1] = "action-2", }, minimum = 0, maximum = 255, closed = true }} },
    { 3, 1, "media.select-track-1", {{ name = "any", type = "u8", minimum = 0, maximum = 255 }, { name = "track", type = "u8", minimum = 1, maximum = 255 }} },
    { 3, 2, "media.action-4-3", {{ name = "select", type = "u8", choices = { [0] = "action-4", [1] = "action-3", }, minimum = 0, maximum = 255, closed = true }} },
    { 3, 5, "media.track-1", {} },
    { 3, 10, "media.select-track-3", {{ name = "any", type = "u8", minimum = 0, maximum = 255 }, { name = "track", type = "u8", minimum = 1, maximum = 255 }} },
    { 3, 11, "media.track-3", {} },
    { 3, 13, "media.track-2", {} },
    { 4, 1, "bluetooth.action-2-1", {{ name = "select", type = "u8", choices = { [0] = "action-2", [1] = "action-1", }, minimum = 0, maximum = 255, closed = true }} },
    { 4, 2, "bluetooth.action-3-4", {{ name = "select", type = "u8", choices = { [0] = "action-3", [1] = "action-4", }, minimum = 0, maximum = 255, closed = true }} },
    { 4, 3, "bluetooth.call", {{ name = "action", type = "u8", choices = { [0] = "accept", [1] = "end", }, minimum = 0, maximum = 255, closed = true }} },
    { 4, 7, "bluetooth.address", {} },
    { 4, 8, "bluetooth.delete-pairings", {} },
    { 4, 11, "bluetooth.set-capability-0", {{ name = "value", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255, closed = true }} },
    { 4, 12, "bluetooth.power-status", {} },
    { 4, 13, "bluetooth.name", {} },
    { 4, 14, "bluetooth.audio-connected", {} },
    { 4, 15, "bluetooth.phone-connected", {} },
    { 4, 20, "bluetooth.music", {} },
    { 4, 21, "bluetooth.call-state", {} },
    { 4, 22, "bluetooth.set-capability-9", {{ name = "value", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255, closed = true }} },
    { 4, 23, "bluetooth.capability-9", {} },
    { 5, 0, "gps.satellites", {} },
    { 5, 2, "gps.position", {} },
    { 5, 11, "gps.antenna", {} },
    { 5, 13, "gps.car-information", {} },
    { 6, 10, "keys.echo-0a", {{ name = "value", type = "u8", minimum = 0, maximum = 255, optional = true }} },
    { 6, 11, "keys.set-feedback", {{ name = "value", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255, optional = true }} },
    { 6, 16, "keys.feedback", {} },
    { 6, 18, "keys.echo-12", {{ name = "value", type = "u8", minimum = 0, maximum = 255, optional = true }} },
    { 6, 19, "keys.factory-reset", {{ name = "confirm", type = "u8", choices = { [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 6, 20, "keys.power-state", {} },
    { 7, 0, "info.version-9", {} },
    { 7, 1, "info.version-0", {} },
    { 7, 4, "info.bluetooth-version", {} },
    { 7, 6, "info.project-name", {} },
    { 7, 30, "info.version-2", {} },
    { 9, 0, "car.state", {} },
    { 9, 6, "car.screen-light", {} },
    { 9, 11, "car.speed", {} },
    { 9, 12, "car.shut-down", {} },
    { 9, 16, "car.set-power-mode", {{ name = "mode", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255, closed = true }} },
    { 10, 2, "identity.write-factory-serial", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 10, 3, "identity.factory-serial", {} },
    { 10, 4, "identity.write-production-date", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 10, 5, "identity.production-date", {} },
    { 10, 14, "identity.write-password-number", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 10, 15, "identity.password-number", {} },
    { 10, 16, "identity.write-bluetooth-address", {{ name = "value", type = "hex", minimum = 12, maximum = 12 }} },
    { 10, 17, "identity.write-carplay-mac", {{ name = "value", type = "hex", minimum = 12, maximum = 12 }} },
    { 10, 18, "identity.carplay-mac", {} },
    { 10, 19, "identity.write-hu-serial", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 10, 20, "identity.hu-serial", {} },
    { 10, 21, "identity.write-drawing-code", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 10, 22, "identity.drawing-code", {} },
    { 10, 26, "identity.bluetooth-address-present", {} },
    { 10, 27, "identity.carplay-mac-present", {} },
    { 14, 0, "other.set-flag", {{ name = "flag", type = "u8", minimum = 0, maximum = 255, optional = true }} },
    { 14, 1, "other.flag", {} },
    { 14, 2, "other.aging-test", {{ name = "start", type = "u8", choices = { [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 14, 3, "other.status", {} },
    { 14, 5, "other.system-update", {} },
    { 14, 6, "other.select-page", {{ name = "page", type = "u8", minimum = 0, maximum = 255 }} },
    { 16, 0, "wifi.start", {{ name = "start", type = "u8", choices = { [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 16, 5, "wifi.bluetooth-name", {} },
    { 16, 6, "wifi.name", {} },
    { 16, 7, "wifi.address", {} },
    { 16, 9, "wifi.ready", {} },
    { 17, 1, "phone.carplay-connected", {} },
    { 17, 5, "phone.android-auto-state", {} },
    { 17, 6, "phone.usb-mac", {} },
    { 17, 7, "phone.usb-mac-matches", {} },
    { 143, 0, "test.set-mode", {{ name = "mode", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255, optional = true }} },
    { 143, 1, "test.media-ready", {{ name = "ready", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 143, 255, "test.mode", {{ name = "mode", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255, closed = true }} },
    { 128, 1, "source.current", {{ name = "source", type = "u8", choices = { [0] = "none", }, minimum = 0, maximum = 19 }} },
    { 129, 1, "audio.volume", {{ name = "volume", type = "u8", minimum = 0, maximum = 255 }} },
    { 129, 19, "audio.hardware-mute", {{ name = "state", type = "u8", minimum = 0, maximum = 255 }} },
    { 129, 24, "audio.eq-switch", {{ name = "value", type = "u8", minimum = 0, maximum = 255 }} },
    { 130, 1, "tuner.frequency", {{ name = "frequency", type = "u16be", unit = "10 kHz on FM", minimum = 0, maximum = 65535 }} },
    { 130, 3, "tuner.band", {{ name = "band", type = "u8", choices = { [0] = "fm", [1] = "band-0", [5] = "band-3", }, minimum = 0, maximum = 255, closed = true, optional = true }} },
    { 130, 18, "tuner.radio-antenna", {{ name = "antenna", type = "u8", choices = { [0] = "bad", [1] = "good", }, minimum = 0, maximum = 255, closed = true }} },
    { 130, 19, "tuner.dab-antenna", {{ name = "antenna", type = "u8", choices = { [0] = "bad", [1] = "good", }, minimum = 0, maximum = 255, closed = true }} },
    { 130, 23, "tuner.traffic-announcement", {{ name = "active", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255 }} },
    { 130, 24, "tuner.fm-frequency", {{ name = "frequency", type = "u32be", unit = "10 kHz", minimum = 0, maximum = 4294967295 }} },
    { 132, 7, "bluetooth.address", {{ name = "address", type = "bytes", minimum = 6, maximum = 6, optional = true }} },
    { 130, 8, "bluetooth.delete-pairings", {{ name = "result", type = "u8", minimum = 0, maximum = 255 }} },
    { 132, 12, "bluetooth.power-status", {{ name = "status", type = "u8", minimum = 0, maximum = 255 }} },
    { 132, 13, "bluetooth.name", {{ name = "name", type = "ascii", minimum = 0, maximum = 246 }} },
    { 132, 14, "bluetooth.audio-connected", {{ name = "connected", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 132, 15, "bluetooth.phone-connected", {{ name = "connected", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 132, 20, "bluetooth.music", {{ name = "status", type = "u8", choices = { [0] = "paused", [1] = "plays", }, minimum = 0, maximum = 255, closed = true, optional = true }} },
    { 132, 21, "bluetooth.call-state", {{ name = "code", type = "u8", minimum = 0, maximum = 3, optional = true }} },
    { 132, 23, "bluetooth.capability-9", {{ name = "value", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255 }} },
    { 133, 0, "gps.satellites", {{ name = "count", type = "u8", minimum = 0, maximum = 20 }, { name = "satellites", type = "records", minimum = 0, maximum = 20, fields = {{ name = "number", type = "u8", minimum = 0, maximum = 255 }, { name = "signal", type = "u24be", minimum = 0, maximum = 16777215 }} }} },
    { 133, 2, "gps.position", {{ name = "latitude", type = "i32be", minimum = -2147483648, maximum = 2147483647 }, { name = "longitude", type = "i32be", minimum = -2147483648, maximum = 2147483647 }} },
    { 133, 11, "gps.antenna", {{ name = "state", type = "u8", choices = { [4] = "good", }, minimum = 0, maximum = 255 }} },
    { 133, 13, "gps.car-information", {{ name = "value", type = "u8", minimum = 0, maximum = 255 }} },
    { 134, 10, "keys.echo-0a", {{ name = "value", type = "u8", minimum = 0, maximum = 255, optional = true }} },
    { 134, 11, "keys.set-feedback", {{ name = "value", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255, optional = true }} },
    { 134, 16, "keys.feedback", {{ name = "value", type = "u8", choices = { [0] = "off", [1] = "on", }, minimum = 0, maximum = 255 }} },
    { 134, 18, "keys.echo-12", {{ name = "value", type = "u8", minimum = 0, maximum = 255, optional = true }} },
    { 134, 20, "keys.power-state", {{ name = "state", type = "u8", minimum = 0, maximum = 255 }} },
    { 134, 17, "keys.pressed", {{ name = "key", type = "u8", choices = { [255] = "unknown", }, minimum = 0, maximum = 255 }, { name = "status", type = "u8", minimum = 4, maximum = 4, optional = true }} },
    { 134, 19, "keys.reset-under-way", {{ name = "value", type = "u8", minimum = 1, maximum = 1 }} },
    { 135, 0, "info.version-9", {{ name = "text", type = "ascii", minimum = 0, maximum = 246 }} },
    { 135, 1, "info.version-0", {{ name = "text", type = "ascii", minimum = 0, maximum = 246 }} },
    { 135, 4, "info.bluetooth-version", {{ name = "text", type = "ascii", minimum = 0, maximum = 246 }} },
    { 135, 6, "info.project-name", {{ name = "text", type = "ascii", minimum = 0, maximum = 246 }} },
    { 135, 30, "info.version-2", {{ name = "text", type = "ascii", minimum = 0, maximum = 246 }} },
    { 137, 0, "car.state", {{ name = "state", type = "u8", choices = { [0] = "zero", [1] = "set", }, minimum = 0, maximum = 255, closed = true }} },
    { 137, 6, "car.screen-light", {{ name = "type-1", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255, closed = true, optional = true }} },
    { 137, 11, "car.speed", {{ name = "speed", type = "u16be", unit = "the platform's unit", minimum = 0, maximum = 65535 }} },
    { 138, 3, "identity.factory-serial", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 138, 5, "identity.production-date", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 138, 15, "identity.password-number", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 138, 18, "identity.carplay-mac", {{ name = "value", type = "hex", minimum = 12, maximum = 12, optional = true }} },
    { 138, 20, "identity.hu-serial", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 138, 22, "identity.drawing-code", {{ name = "value", type = "ascii", minimum = 0, maximum = 246 }} },
    { 138, 26, "identity.bluetooth-address-present", {{ name = "present", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 138, 27, "identity.carplay-mac-present", {{ name = "present", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 142, 1, "other.flag", {{ name = "flag", type = "u8", minimum = 0, maximum = 255 }} },
    { 142, 3, "other.status", {{ name = "status", type = "u8", minimum = 0, maximum = 0 }} },
    { 144, 5, "wifi.bluetooth-name", {{ name = "text", type = "ascii", minimum = 0, maximum = 246 }} },
    { 144, 6, "wifi.name", {{ name = "text", type = "ascii", minimum = 0, maximum = 246 }} },
    { 144, 7, "wifi.address", {{ name = "text", type = "ascii", minimum = 0, maximum = 15 }} },
    { 144, 9, "wifi.ready", {{ name = "ready", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 145, 1, "phone.carplay-connected", {{ name = "connected", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 145, 5, "phone.android-auto-state", {{ name = "state", type = "u8", minimum = 0, maximum = 255 }} },
    { 145, 6, "phone.usb-mac", {{ name = "mac", type = "hex", minimum = 12, maximum = 12 }} },
    { 145, 7, "phone.usb-mac-matches", {{ name = "matches", type = "u8", choices = { [0] = "no", [1] = "yes", }, minimum = 0, maximum = 255, closed = true }} },
    { 131, 5, "media.track-1", {{ name = "index", type = "u8", minimum = 0, maximum = 255 }} },
    { 131, 11, "media.track-3", {{ name = "index", type = "u8", minimum = 0, maximum = 255 }} },
    { 131, 13, "media.track-2", {{ name = "index", type = "u8", minimum = 0, maximum = 255 }} },
    { 132, 8, "bluetooth.delete-pairings", {{ name = "status", type = "u8", minimum = 0, maximum = 255 }} },
    { 138, 15, "identity.carplay-mac", {} },
}

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

local bad_checksum = ProtoExpert.new("engineering.expert.checksum", "The checksum is wrong", expert.group.CHECKSUM,
  expert.severity.ERROR)
local out_of_range = ProtoExpert.new("engineering.expert.range", "The value is out of its range",
  expert.group.PROTOCOL, expert.severity.WARN)
local cut_short = ProtoExpert.new("engineering.expert.short", "The frame ends before this field",
  expert.group.MALFORMED, expert.severity.WARN)
local left_over = ProtoExpert.new("engineering.expert.rest", "More bytes than the known fields take",
  expert.group.PROTOCOL, expert.severity.NOTE)
local no_frame = ProtoExpert.new("engineering.expert.garbage", "Bytes that are no frame", expert.group.MALFORMED,
  expert.severity.NOTE)
engineering.experts = { bad_checksum, out_of_range, cut_short, left_over, no_frame }

local sizes = { u8 = 1, u16be = 2, u24be = 3, u32be = 4, i32be = 4 }
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
  for _, inner in ipairs(field.fields) do size = size + sizes[inner.type] end
  local present = math.min(count, math.floor((params:len() - offset) / size))
  for i = 1, present do
    local record = tree:add(params(offset, size), field.name .. " " .. i)
    for _, inner in ipairs(field.fields) do
      add_number(record, params(offset, sizes[inner.type]), inner)
      offset = offset + sizes[inner.type]
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
    local size = sizes[field.type]
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
      if count < field.minimum or count > field.maximum then item:add_proto_expert_info(out_of_range) end
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

-- Dissects the frame at the buffer's beginning; returns its length and what it says, or nil when there is none.
local function dissect_frame(buffer, tree)
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
  end
  branch:append_text(", " .. text)
  return total, (from_unit and "unit: " or "station: ") .. text
end

function engineering.dissector(buffer, pinfo, tree)
  pinfo.cols.protocol = "ENGINEERING"
  local offset, garbage, texts = 0, nil, {}
  local function close_garbage()
    if garbage then
      tree:add(engineering, buffer(garbage, offset - garbage), "Bytes that are no frame")
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
      taken, text = dissect_frame(rest, tree)
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
