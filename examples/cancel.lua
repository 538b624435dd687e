-- Removes the echo of REF (what the loudspeaker played) from MIC (what the microphone heard).
local usage = [[
usage: lua5.1 cancel.lua [--config F] [--play-gain G] [--frame-len N] MIC.wav REF.wav OUT.wav
  MIC, REF   mono 16-bit WAV files at the rate of the configuration, recorded in step
  OUT        the microphone without echo, in step with MIC; written only when all went well
  --config F     configuration (conf/aec.conf beside this directory)
  --play-gain G  whole factor on the reference (1); results wrap to 16 bits
  --frame-len N  samples per frame, if it cannot be read from the configuration
Messages of the module are on standard output, those of this script on standard error.]]

package.path = (arg[0]:match("^(.*/)") or "./") .. "?.lua;" .. package.path
local setup, wav = require("setup"), require("wav")

local SILENCE = "\0\0"

local options, files = setup.options(usage, 1, 3)
local frame_len, rate = setup.sizes(options)

local function read(path)
    local samples, found = wav.read(path)
    if not samples then setup.fail(1, "%s", found) end
    if found ~= rate then
        setup.fail(1, "%s: its rate is %d Hz, the configuration's %d Hz", path, found, rate)
    end
    return samples
end
local mic, ref = read(files[1]), read(files[2])
local count = math.max(#mic, #ref) / 2
for i, signal in ipairs({mic, ref}) do
    if #signal / 2 < count then
        io.stderr:write(("%s: %.2f s shorter, continued with silence\n"):format(files[i],
            (count - #signal / 2) / rate))
    end
end

-- Frame `index` of a signal, from 0, with silence behind the signal's end.
local function frame(signal, index)
    local bytes = 2 * frame_len
    local samples = signal:sub(index * bytes + 1, (index + 1) * bytes)
    return samples .. SILENCE:rep((bytes - #samples) / 2)
end

local object = setup.object(setup.module(), options, frame_len)
-- The canceller runs one frame behind: feed one frame more and drop the first one it gives.
local last, out, shown = math.ceil(count / frame_len), {}, 0
for i = 0, last do
    out[i] = setup.feed(object, frame(mic, i), frame(ref, i), options)
    local tenths = math.floor(10 * i / last)
    if tenths > shown then
        io.stderr:write(("\rcancelling: %3d %%"):format(10 * tenths))
        shown = tenths
    end
end
local done, message = wav.write(files[3], table.concat(out, "", 1, last):sub(1, 2 * count), rate)
io.stderr:write("\n")
if not done then setup.fail(1, "%s", message) end
io.stderr:write(("%s: %.2f s at %d Hz\n"):format(files[3], count / rate, rate))
