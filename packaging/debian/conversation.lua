-- An echo of noise, most of which the module takes away, then the talker alone, whom it passes: by
-- the installed module, and the configuration arg[1].
local echo = require "echo"
local canceller = echo.new(('{"qelCfgFile": "%s", "frameLen": 512}'):format(arg[1]))

local function energy(frame)
    local sum = 0
    for low, high in frame:gmatch("(.)(.)") do
        local v = low:byte() + 256 * high:byte()
        sum = sum + (v < 32768 and v or v - 65536) ^ 2
    end
    return sum
end

local seed = 1
local function noise()
    local words = {}
    for i = 1, 512 do
        seed = (seed * 16807) % 2147483647
        words[i] = string.char(seed % 256, math.floor(seed / 256) % 32)
    end
    return table.concat(words)
end

local heard, left = 0, 0
for frame = 1, 300 do
    local ref = noise()
    local clean = canceller:feed(ref, ref)
    if frame > 200 then heard, left = heard + energy(ref), left + energy(clean) end
end
local before, mic, clean
for frame = 1, 50 do
    before, mic = mic, noise()
    clean = canceller:feed(mic, ("\0"):rep(1024))
end
assert(left < heard / 100, "echo left")
assert(clean == before, "the talker is lost")
print("echo taken, talker passed")
