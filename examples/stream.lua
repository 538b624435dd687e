-- Removes the echo from a live stream: interleaved two-channel PCM (microphone, reference) on
-- standard input, mono PCM on standard output, both raw little-endian signed 16-bit:
--
--   arecord -t raw -f S16_LE -r 16000 -c 2 | lua5.1 stream.lua | aplay -t raw -f S16_LE -r 16000
--
-- The module prints its messages on standard output, where only PCM may go, and Lua cannot move a
-- file descriptor. So the script runs itself once more through the shell: that child does the work,
-- with standard error for its messages, and hands its PCM to the script through a pipe.
local usage = [[
usage: lua5.1 stream.lua [--config F] [--play-gain G] [--frame-len N] <stereo.pcm >mono.pcm
  The output runs one frame behind; a last frame that is not whole is padded with silence.
  For the options see cancel.lua.]]

-- The interpreter makes the first SIGINT an error with a traceback, raised when it next runs Lua
-- and not while it waits; from the second on, SIGINT simply ends it. So take the first one here.
pcall(function() io.popen("kill -INT $PPID"):close() end)

package.path = (arg[0]:match("^(.*/)") or "./") .. "?.lua;" .. package.path
local setup = require("setup")

local CHILD = "--pcm-on-descriptor-3"
local DONE = "." -- what the child sends behind the last frame; less than a frame

-- Copies what the child cleans; true when it did all of it.
local function forward(child, bytes)
    while true do
        local block = child:read(bytes)
        if block == DONE then return true end
        if not block or #block < bytes or not (io.write(block) and io.flush()) then return false end
    end
end

local function run_child(frame_len)
    local words, first = {}, 0
    while arg[first - 1] do first = first - 1 end -- the interpreter's own name and options
    table.insert(arg, 1, CHILD)
    for i = first, #arg do words[#words + 1] = setup.quote(arg[i]) end
    local child = io.popen("echo $$; exec " .. table.concat(words, " ") .. " 3>&1 1>&2")
    -- The guard ends the child when this process is gone, which it sees by an end of file: no line.
    local guard = io.popen("trap '' HUP INT QUIT TERM; read done || kill "
        .. child:read() .. " 2>/dev/null", "w")
    local all = forward(child, 2 * frame_len)
    if all then guard:write("done\n") end
    guard:close()
    child:close()
    return all
end

local function clean(options, frame_len)
    local echo = setup.module()
    local object = setup.object(echo, options, frame_len)
    local out, message = io.open("/proc/self/fd/3", "wb")
    if not out then setup.fail(1, "%s", message) end
    local bytes = 4 * frame_len
    while true do
        local block = io.read(bytes)
        if not block then break end
        local mic, ref = echo.separate_channel(block .. ("\0"):rep(bytes - #block))
        out:write(setup.feed(object, mic, ref, options))
        if not out:flush() then os.exit(1) end -- a live listener waits for every frame
    end
    out:write(DONE)
    out:close()
end

if arg[1] == CHILD then
    local options = setup.options(usage, 2, 0)
    clean(options, (setup.sizes(options)))
else
    os.exit(run_child((setup.sizes(setup.options(usage, 1, 0)))) and 0 or 1)
end
