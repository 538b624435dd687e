-- Mono 16-bit PCM WAV files as strings of little-endian samples.
local wav = {}

local OPEN_ENDED = 0x7FFFF000 -- writers into a pipe announce this much or more

local function u16(s, at)
    local low, high = s:byte(at, at + 1)
    return low + 256 * high
end

local function u32(s, at) return u16(s, at) + 65536 * u16(s, at + 2) end

local function le(value, bytes)
    local out = {}
    for i = 1, bytes do
        out[i] = string.char(value % 256)
        value = math.floor(value / 256)
    end
    return table.concat(out)
end

-- What is wrong with the format chunk in s[at, at + size), which is all there, or nil.
local function format_fault(s, at, size)
    local tag, channels, bits = u16(s, at), u16(s, at + 2), u16(s, at + 14)
    if tag == 0xFFFE and size >= 26 then tag = u16(s, at + 24) end -- extensible: the real one
    if tag ~= 1 then return ("it is not PCM (format %d)"):format(tag) end
    if bits ~= 16 then return ("it has %d bits per sample, not 16"):format(bits) end
    if channels ~= 1 then return ("it has %d channels, not one"):format(channels) end
end

local function parse(s)
    if #s < 12 or s:sub(1, 4) ~= "RIFF" or s:sub(9, 12) ~= "WAVE" then
        return nil, "it is not a WAV file", #s > 0
    end
    local at, rate = 13, nil
    while at + 7 <= #s do
        local id, size, body = s:sub(at, at + 3), u32(s, at + 4), at + 8
        local rest = #s - body + 1
        if id == "fmt " then
            if size < 16 or size > rest then return nil, "its header is cut short" end
            local fault = format_fault(s, body, size)
            if fault then return nil, fault, true end
            rate = u32(s, body + 4)
        elseif id == "data" then
            if not rate then return nil, "its samples come before their format" end
            if size >= OPEN_ENDED then size = rest end
            if size > rest then
                return nil, ("it is cut short: %d of %d bytes of samples"):format(rest, size)
            end
            if size < 2 then return nil, "it has no samples" end
            return s:sub(body, body + size - size % 2 - 1), rate
        end
        at = body + size + size % 2 -- chunks are padded to even lengths
    end
    return nil, "its header is cut short"
end

-- Samples and rate in Hz; or nil, a message that names the file, and whether all that is wrong with
-- it is its format.
function wav.read(path)
    local file, message = io.open(path, "rb")
    if not file then return nil, message end
    local bytes, fault = file:read("*a")
    file:close()
    if not bytes then return nil, path .. ": " .. fault end
    local samples, rate, other_format = parse(bytes)
    if not samples then return nil, path .. ": " .. rate, other_format end
    return samples, rate
end

-- Writes a whole file or none: true, or nil and a message.
function wav.write(path, samples, rate)
    local part = path .. ".part"
    local file, message = io.open(part, "wb")
    if not file then return nil, message end
    local header = "RIFF" .. le(36 + #samples, 4) .. "WAVEfmt " .. le(16, 4) .. le(1, 2) .. le(1, 2)
        .. le(rate, 4) .. le(2 * rate, 4) .. le(2, 2) .. le(16, 2) .. "data" .. le(#samples, 4)
    local written, fault = file:write(header, samples)
    -- Both count: a full disk may show only when the last buffer is written out.
    local closed, close_fault = file:close()
    local done = written and closed
    if done then done, close_fault = os.rename(part, path) end
    if done then return true end
    os.remove(part)
    return nil, path .. ": " .. (fault or close_fault)
end

return wav
