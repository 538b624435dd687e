-- Removes the echo of REF (what the loudspeaker played) from MIC (what the microphone heard).
local usage = [[
usage: lua5.1 cancel.lua [--config F] [--play-gain G] [--frame-len N] [--report R]
                           MIC.wav REF.wav OUT.wav
  MIC, REF   mono 16-bit WAV files at the rate of the configuration, recorded in step
  OUT        the microphone without echo, in step with MIC; written only when all went well
  --config F     configuration (conf/aec.conf beside this directory)
  --play-gain G  whole factor on the reference (1); results wrap to 16 bits
  --frame-len N  samples per frame, if it cannot be read from the configuration
  --report R     "no" to do without the echo reduction, which takes Lua as long as the rest
Messages of the module are on standard output, those of this script on standard error.]]

package.path = (arg[0]:match("^(.*/)") or "./") .. "?.lua;" .. package.path
local setup, wav = require("setup"), require("wav")

local SILENCE = "\0\0"
local QUIET = 5 -- a reference of at most this many sample units counts as silent

local options, files = setup.options(usage, 1, 3)
local target = setup.target(files[3], files[1], files[2])
local frame_len, rate, muted_frames = setup.sizes(options)

-- The sox command that makes of the file at `path` one that fits.
local function mending(path)
    path = path:gsub("^%-", "./-") -- no option
    return ("sox %s -r %d -c 1 -b 16 -e signed-integer %s"):format(setup.quote(path), rate,
        setup.quote(path:gsub("%.[^./]*$", "") .. "-mended.wav"))
end

local function read(path)
    local samples, found, other_format = wav.read(path)
    if samples and found ~= rate then
        samples, other_format = nil, true
        found = ("%s: its rate is %d Hz, the configuration's %d Hz"):format(path, found, rate)
    end
    if samples then return samples end
    setup.fail(1, "%s%s", found, other_format and "\nThis may mend it: " .. mending(path) or "")
end
local mic, ref = read(files[1]), read(files[2])
local length = math.max(#mic, #ref) / 2 -- in samples
for i, signal in ipairs({mic, ref}) do
    if #signal / 2 < length then
        io.stderr:write(("%s: %.2f s shorter, continued with silence\n"):format(files[i],
            (length - #signal / 2) / rate))
    end
end

local silence = SILENCE:rep(frame_len)

-- Frame `index` of a signal, from 0, with silence behind the signal's end.
local function frame(signal, index)
    local bytes = 2 * frame_len
    local samples = signal:sub(index * bytes + 1, (index + 1) * bytes)
    return samples .. SILENCE:rep((bytes - #samples) / 2)
end

-- The power of a frame: the sum of its squared samples.
local function power(samples)
    local sum = 0
    for i = 1, #samples, 2 do
        local low, high = samples:byte(i, i + 1)
        local sample = low + 256 * (high < 128 and high or high - 256)
        sum = sum + sample * sample
    end
    return sum
end

-- What became of the frames, and of the power of those that were processed.
local fates, heard, left = {bypassed = 0, muted = 0, processed = 0}, 0, 0

-- Counts the frame `out` that the module gave for `mic` while it was fed `ref`. If the loudspeaker
-- is silent, it is `mic` bit for bit; the first frames that are not are muted.
local function count(mic, ref, out)
    if out == mic and (mic ~= silence or power(ref) <= frame_len * QUIET ^ 2) then
        fates.bypassed = fates.bypassed + 1
    elseif fates.muted < muted_frames then
        fates.muted = fates.muted + 1
    else
        fates.processed = fates.processed + 1
        heard, left = heard + power(mic), left + power(out)
    end
end

local object = setup.object(setup.module(), options, frame_len)
-- The canceller runs one frame behind: feed one frame more and drop the first one it gives.
local last, out, shown, before = math.ceil(length / frame_len), {}, 0, silence
for i = 0, last do
    local mic_frame, ref_frame = frame(mic, i), frame(ref, i)
    out[i] = setup.feed(object, mic_frame, ref_frame, options)
    if options.report ~= "no" and i < last then count(before, ref_frame, out[i]) end
    before = mic_frame
    local tenths = math.floor(10 * i / last)
    if tenths > shown then
        io.stderr:write(("\rcancelling: %3d %%"):format(10 * tenths))
        shown = tenths
    end
end
local done, message = wav.write(target, table.concat(out, "", 1, last):sub(1, 2 * length), rate)
io.stderr:write("\n")
if not done then setup.fail(1, "%s", message) end
io.stderr:write(("%s: %.2f s at %d Hz\n"):format(files[3], length / rate, rate))
if options.report ~= "no" then
    local reduction = 10 * math.log10(math.max(heard, 1) / math.max(left, 1))
    io.stderr:write(("echo reduction %.1f dB; frames: %d bypassed, %d muted, %d processed\n")
        :format(reduction, fates.bypassed, fates.muted, fates.processed))
end
