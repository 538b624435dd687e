-- Removes the echo from a live stream: interleaved two-channel PCM (microphone, reference) on
-- standard input, mono PCM on standard output, both raw little-endian signed 16-bit:
--
--   arecord -t raw -f S16_LE -r 16000 -c 2 | lua5.1 stream.lua | aplay -t raw -f S16_LE -r 16000
--
-- The module prints its messages on standard output, where only PCM may go, and Lua cannot move a
-- file descriptor. So the script runs itself once more through the shell, with standard output
-- kept as descriptor 3 and then replaced by standard error, and sends its PCM to 3 through cat.
local usage = [[
usage: lua5.1 stream.lua [--config F] [--play-gain G] [--frame-len N] <stereo.pcm >mono.pcm
  The output runs one frame behind; a last frame that is not whole is padded with silence.
  For the options see cancel.lua.]]

local CHILD = "--pcm-on-descriptor-3"

package.path = (arg[0]:match("^(.*/)") or "./") .. "?.lua;" .. package.path
local setup = require("setup")

if arg[1] ~= CHILD then
    setup.options(usage, 1, 0) -- complains here, where standard output is still ours
    local first = 0
    while arg[first - 1] do first = first - 1 end -- the interpreter's own name and options
    table.insert(arg, 1, CHILD)
    local words = {}
    for i = first, #arg do words[#words + 1] = "'" .. arg[i]:gsub("'", "'\\''") .. "'" end
    local status = os.execute("exec " .. table.concat(words, " ") .. " 3>&1 1>&2")
    os.exit(status % 256 == 0 and status / 256 or 1)
end

local options = setup.options(usage, 2, 0)
local frame_len = setup.sizes(options)
local echo = setup.module()
local object = setup.object(echo, options, frame_len)
local out = io.popen("exec cat >&3", "w")
local bytes = 4 * frame_len
while true do
    local block = io.read(bytes)
    if not block then break end
    local mic, ref = echo.separate_channel(block .. ("\0"):rep(bytes - #block))
    out:write(setup.feed(object, mic, ref, options))
    out:flush() -- a live listener waits for every frame
end
out:close()
