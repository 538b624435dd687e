-- What both examples need before the first sample: options, settings, the module, an object.
local setup = {}

local script = arg[0]
local here = script:match("^(.*/)") or "./"

-- Prints a message on standard error and ends the program: 1 for a failed job, 2 for wrong usage.
function setup.fail(status, ...)
    io.stderr:write(script, ": ", string.format(...), "\n")
    os.exit(status)
end

-- A word for the shell.
function setup.quote(word) return "'" .. word:gsub("'", "'\\''") .. "'" end

-- Splits the command line from arg[first] on into options (each takes a value) and the rest.
function setup.options(usage, first, count)
    local options = {config = here .. "../conf/aec.conf", ["play-gain"] = "1"}
    local rest, i = {}, first
    while arg[i] do
        local name = arg[i]:match("^%-%-(.*)$")
        if name == "help" then
            print(usage)
            os.exit(0)
        elseif name == "config" or name == "play-gain" or name == "frame-len" then
            i = i + 1
            if not arg[i] then setup.fail(2, "--%s needs a value\n%s", name, usage) end
            options[name] = arg[i]
        elseif name then
            setup.fail(2, "there is no option --%s\n%s", name, usage)
        else
            rest[#rest + 1] = arg[i]
        end
        i = i + 1
    end
    if #rest ~= count then setup.fail(2, "%d file names, not %d\n%s", #rest, count, usage) end
    if not options["play-gain"]:match("^%-?%d+$") then
        setup.fail(2, "--play-gain needs a whole number, not %s", options["play-gain"])
    end
    if options["frame-len"] and not options["frame-len"]:match("^[1-9]%d*$") then
        setup.fail(2, "--frame-len needs a number of samples, not %s", options["frame-len"])
    end
    return options, rest
end

-- Samples per frame and rate in Hz, as the section "aec" of the configuration's text says: plain
-- numbers, the last of a name. Includes are not followed; --frame-len helps there.
function setup.sizes(options)
    local file, message = io.open(options.config, "rb")
    if not file then setup.fail(1, "%s", message) end
    local text = "\n" .. (file:read("*a") or ""):gsub("#[^\n]*", "")
    file:close()
    local sizes = {frame_size = 512, freqs = 16000}
    for section in text:gmatch("[%s;}]aec%s*=%s*(%b{})") do
        local own = section:sub(2, -2):gsub("%b{}", ";") -- "nlp" has a frame_size of its own
        for name, value in (";" .. own):gmatch('[%s;]([%w_]+)%s*=%s*"?(%d+)') do
            sizes[name] = value
        end
    end
    return tonumber(options["frame-len"] or sizes.frame_size), tonumber(sizes.freqs)
end

-- The module: from LUA_CPATH or Lua's own places, else from the build directory beside this one.
function setup.module()
    package.cpath = package.cpath .. ";" .. here .. "../build/host/?.so"
    local found, echo = pcall(require, "echo")
    if not found then setup.fail(1, "cannot load echo.so; build it or set LUA_CPATH\n%s", echo) end
    return echo
end

-- An echo object for frames of `frame_len` samples.
function setup.object(echo, options, frame_len)
    local path = options.config:gsub('[%c"\\]', function(c)
        return ("\\u%04x"):format(c:byte())
    end)
    local object = echo.new(('{"qelCfgFile": "%s", "frameLen": %d, "playGain": %s}'):format(
        path, frame_len, options["play-gain"]))
    if not object then
        io.stdout:write("\n") -- the module's message has no newline
        setup.fail(1, "%s: not a usable configuration", options.config)
    end
    return object
end

-- One frame without echo; ends the program if there is none.
function setup.feed(object, mic, ref, options)
    return object:feed(mic, ref) or setup.fail(1,
        "no frame of %d samples came back: does %s set another frame_size? Try --frame-len",
        #mic / 2, options.config)
end

return setup
