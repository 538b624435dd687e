-- The module in a real interpreter. The arguments are the files that standard output and standard
-- error go to: what the module says is read back from there.
local echo = require("echo")
local file, log, checks = assert(io.open(arg[1], "rb")), assert(io.open(arg[2], "rb")), 0

local function equal(found, expected, what)
    checks = checks + 1
    if found ~= expected then
        error(("%s: %q instead of %q"):format(what, tostring(found), tostring(expected)), 2)
    end
end

-- Calls fn(...) and compares its first two results and what it printed, log lines aside.
local function check(what, text, first, second, fn, ...)
    local got_first, got_second = fn(...)
    io.stdout:flush()
    local printed = file:read("*a"):gsub("=+ %d+%-%d%d%-%d%d =+\n", "")
    equal(printed:gsub("%d%d:%d%d:%d%d%.%d+ %[%u%] [^\n]*\n", ""), text, what)
    equal(got_first, first, what)
    equal(got_second, second, what)
end

-- The explanations that the module gave since the last call.
local function explained()
    local text = ""
    for line in log:read("*a"):gmatch(" %[W%] (echo_[^\n]*\n)") do text = text .. line end
    return text
end

local files = {arg[1], arg[2]}
local function config(text)
    files[#files + 1] = os.tmpname()
    local stream = assert(io.open(files[#files], "wb"))
    stream:write(text)
    stream:close()
    return files[#files]
end
local conf, broken = config("aec = { use_vad = 1; mute = { mute_time = 0; } }"), config("a = 1 ;")

-- `options` is the inside of a JSON object; @ stands for the configuration, $ for a frame length, too.
local function new(options)
    options = options:gsub("%$", '@, "frameLen": 512'):gsub("@", '"qelCfgFile": "' .. conf .. '"')
    return echo.new("{" .. options .. "}")
end

-- A frame of noise, another for each seed; every sample times `factor`, modulo 65536.
local function frame(seed, factor)
    local out, x = {}, seed
    for i = 1, 512 do
        x = (x * 16807) % 2147483647
        local sample = (i == 1 and 20000 or i == 2 and -32768 or x % 16384 - 8192) * (factor or 1)
        out[i] = string.char(sample % 256, math.floor(sample / 256) % 256)
    end
    return table.concat(out)
end
local some, silence = frame(1), ("\0"):rep(1024)

-- The module

local object = assert(new('@, "frameLen": 512'))
local meta = getmetatable(object)
equal(rawget(_G, "echo"), echo, "global table")
equal(debug.getregistry()["pux.echo.meta"], meta, "registered metatable")
equal(meta.__index, meta, "__index")

-- echo.new: options, what is printed besides nil, a part of what is explained

local FAILED, CUT, SILENT = "echo new failed", " is no whole number in range", " silences the reference"
explained()
for _, case in ipairs({
    {"$"}, {'@, "FRAMELEN": 65536, "isBin": 0, "playGain": -3, "rate": 8000'},
    {'$, "playGain": 32767'}, {'$, "playGain": -32768'},
    {'$, "playGain": 0', nil, ": 0" .. SILENT}, {'$, "playGain": 0.5', nil, "0.5, taken as 0," .. SILENT},
    {'$, "playGain": {}', nil, "{}, taken as 0," .. SILENT}, {'$, "playGain": true', nil, "as 1," .. CUT},
    {'$, "playGain": 99999999999', nil, "99999999999, taken as -1," .. CUT},
    {'$, "playGain": 40000', nil, '"playGain": 40000, taken as -25536,' .. CUT},
    {'$, "playgian": 2', nil, '"playgian" is no option and does nothing; write "playGain"'},
    {'$, "isBin": "1"', nil, '"isBin": "1", taken as 0,' .. CUT}, -- no number: 0
    {'@, "frameLen": "5"', nil, '"5", taken as 0, leaves no samples'}, {'@, "frameLen": -512', nil, "-512 leaves"},
    {'@, "frameLen": 500', nil, '"frameLen": 500 is no whole multiple of frame_size = 512 of '},
    {'"qelCfgFile": "' .. config("aec = { use_hdr = 1; }") .. '", "frameLen": 512', nil, "use_hdr"},
    {'$, "isBin": 1', FAILED, ": 1 is refused"}, {'$, "isBin": true', FAILED, "true, taken as 1, is refused"},
    {'@,\n\n "frameLen": 512,,', FAILED, "line 3, column 19, near ' \"frameLen\": 512,,}'"},
    {'$} behind {'}, {"$,," .. ("x"):rep(99), FAILED, ",," .. ("x"):rep(20) .. "'."},
    {"@", FAILED, '"frameLen" is missing'}, {"", FAILED, '"qelCfgFile" is missing'},
    {'"qelCfgFile": "/nonexistent", "frameLen": 1', "/nonexistent not exist" .. FAILED, "cannot be read: No such"},
    {'"qelCfgFile": 7, "frameLen": 1', "(null) not exist" .. FAILED, '"qelCfgFile" is no string'},
    {'"qelCfgFile": "/tmp", "frameLen": 1', FAILED},
    {'"qelCfgFile": "' .. broken .. '", "frameLen": 1', FAILED},
    {'"qelCfgFile": "' .. config("") .. '", "frameLen": 1', FAILED},
}) do
    local kind = case[2] and "nil" or "userdata"
    check(case[1], case[2] or "", kind, nil, function() return type(new(case[1])) end)
    local text = explained()
    equal(text:find(case[3] or "^$", 1, case[3] ~= nil) and "" or text, "", case[1])
end
for _, argument in ipairs({"", "[1]", '"text"', "null", "\0", 7, true, {}, print, object}) do
    check(tostring(argument), FAILED, nil, nil, echo.new, argument)
end
check("no argument", FAILED, nil, nil, echo.new)

-- feed: parameters. Nothing of this disturbs the object: a silent reference gives the microphone,
-- one frame late.

local PARAMETERS, OUT = "echo feed parameters error.\n", "echo out error.\n"
local proxy, list = debug.setmetatable(newproxy(), meta), setmetatable({}, meta)
for i = 1, 16 do list[i] = i end -- as long as an object has bytes
for i, a in ipairs({
    {}, {object}, {object, some}, {object, nil, some}, {object, some, {}}, {object, true, some},
    {nil, some, some}, {"object", some, some}, {io.stdout, some, some}, {proxy, some, some},
    {list, some, some}, {object, some, some .. some}, {object, some .. some, some .. some},
    {object, "", ""}, {object, some:sub(2), some:sub(2)}, {object, 12, 34},
}) do
    check("parameters " .. i, PARAMETERS, nil, nil, meta.feed, a[1], a[2], a[3])
end
for seed = 1, 3 do
    local late = seed > 1 and frame(seed - 1) or silence
    check("silent reference", "", late, nil, object.feed, object, frame(seed), silence)
end
for frame_len, text in pairs({
    [0] = "", [1024] = "", -- two frames at once work too
    [256] = OUT, [511] = OUT, [-512] = PARAMETERS, [2147483647] = PARAMETERS,
}) do
    local other = new('@, "frameLen": ' .. frame_len)
    local block = ("\0"):rep(frame_len > 0 and frame_len < 2000 and 2 * frame_len or 0)
    for _ = 1, 3 do
        check(frame_len, text, text == "" and block or nil, nil, other.feed, other, block, block)
    end
end

-- feed: the gain is written into the caller's string, and the canceller gets just that.

for _, case in ipairs({ -- gain, the factor it is, whether the reference is the microphone's string
    {2, 2}, {65538, 2}, {-1, -1}, {1, 1}, {65537, 1}, {0, 0}, {32768, -32768}, {2, 2, true},
}) do
    local gain, factor, same = unpack(case)
    local scaling, plain = new('@, "frameLen": 512, "playGain": ' .. gain), new('@, "frameLen": 512')
    for seed = 10, 13 do
        local ref, expected = frame(seed), frame(seed, factor)
        local mic = same and ref or frame(seed + 7)
        equal(scaling:feed(mic, ref), plain:feed(same and expected or mic, expected), "gain " .. gain)
        -- Byte by byte: Lua takes a string that was written to for another one.
        for at = 1, 1024 do equal(ref:byte(at), expected:byte(at), "string, gain " .. gain) end
    end
end

-- separate_channel

for _, case in ipairs({
    {"L0R0L1R1", "L0L1", "R0R1"}, {1234, "12", "34"}, {"\0\1\2\255", "\0\1", "\2\255"},
    {""}, {"ab"}, {"abcdef"}, {"abcde"}, {12},
}) do
    local text = case[2] and "" or "separate channel failed.\n"
    check(case[1], text, case[2], case[3], echo.separate_channel, case[1])
end
for _, argument in ipairs({false, {}, print, object}) do
    local message = select(2, pcall(echo.separate_channel, argument))
    equal(tostring(message):match("string expected"), "string expected", type(argument))
end

-- Objects work whatever their metatable

local registry = debug.getregistry()
registry["pux.echo.meta"] = {__index = {feed = meta.feed}, __gc = meta.__gc}
equal(new("$"):feed(silence, silence), silence, "another metatable")
registry["pux.echo.meta"] = nil
local bare = new("$")
equal(meta.feed(bare, silence, silence), silence, "no metatable")
meta.__gc(bare)
registry["pux.echo.meta"] = 7
check("no table", FAILED, nil, nil, new, "$")
registry["pux.echo.meta"] = meta

-- Collection, by hand and by Lua

for _, argument in ipairs({object, object, io.stdout, proxy, list, 1}) do
    equal(select("#", meta.__gc(argument)), 0, "__gc")
end
meta.__gc()
check("feed after __gc", OUT, nil, nil, object.feed, object, some, some)
for _ = 1, 20 do
    new('@, "frameLen": 512'):feed(some, some)
    collectgarbage()
end

local weak = setmetatable({new("$")}, {__mode = "v"})
collectgarbage()
equal(weak[1], nil, "collected")

for _, path in ipairs(files) do os.remove(path) end
io.stderr:write(checks, " checks\n")
