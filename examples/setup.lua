-- What the examples need before the first sample: options, settings, the module, an object.
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

-- Splits the command line from arg[first] on into the options that `usage` shows (each takes a
-- value) and the rest.
function setup.options(usage, first, count)
    local options = {config = here .. "../conf/aec.conf", ["play-gain"] = "1"}
    local rest, i = {}, first
    while arg[i] do
        local name = arg[i]:match("^%-%-(.*)$")
        if name == "help" then
            print(usage)
            os.exit(0)
        elseif name and usage:find("[--" .. name .. " ", 1, true) then
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

-- Prints "=" and the file that the name $1 stands for, or why it may not be written: it must be
-- absent or a regular file, as must be $1.part beside it, and none of the files $2, $3...
local LOOK = [[
refuse() { printf "%s: it is %s" "$file" "$1"; exit; }
out=$1
shift
if [ -h "$out" ]; then
    [ -e "$out" ] || file=$out refuse "a link to nowhere"
    out=$(readlink -f -- "$out")
fi
for file in "$out" "$out.part"; do
    if [ -e "$file" ] || [ -h "$file" ]; then
        [ -f "$file" ] && [ ! -h "$file" ] || refuse "no regular file"
    fi
    for input; do [ ! "$file" -ef "$input" ] || refuse "the input $input"; done
done
printf "=%s" "$out"]]

-- The file to write for OUT, links followed. Lua cannot tell a device or a link from a file, so it
-- asks the shell.
function setup.target(out, ...)
    local words = {}
    for i, path in ipairs({out, ...}) do words[i] = setup.quote(path) end
    local shell = io.popen("set -- " .. table.concat(words, " ") .. "\n" .. LOOK)
    local answer = shell:read("*a")
    shell:close()
    return answer:match("^=(.+)$") or setup.fail(1, "%s", answer)
end

-- Takes the plain values of a section by their names, the last of each; of sections in it, none.
local function take(section, values)
    local own = ";" .. section:sub(2, -2):gsub("%b{}", ";")
    for name, value in own:gmatch('[%s;]([%w_]+)%s*=%s*"?([^%s";]*)') do values[name] = value end
end

local function number(value, default)
    return tonumber((value or ""):match("^%-?%d+")) or default
end

-- Whether a switch is on, as it is by default.
local function on(value)
    local word = value and value:lower() or "yes"
    return word == "1" or word == "t" or word == "true" or word == "y" or word == "yes"
end

-- Samples per frame, rate in Hz and the number of frames that the start-up mute takes, as the
-- section "aec" of the configuration's text says. Includes are not followed; --frame-len helps
-- there.
function setup.sizes(options)
    local file, message = io.open(options.config, "rb")
    if not file then setup.fail(1, "%s", message) end
    local text = "\n" .. (file:read("*a") or ""):gsub("#[^\n]*", "")
    file:close()
    local aec, mute = {}, {}
    for section in text:gmatch("[%s;}]aec%s*=%s*(%b{})") do
        take(section, aec)
        for part in section:gmatch("[%s;{}]mute%s*=%s*(%b{})") do take(part, mute) end
    end
    local muted = on(aec.use_mute) and on(aec.use_nlp) and 31.25 * number(mute.mute_time, 1) or 0
    return number(options["frame-len"] or aec.frame_size, 512), number(aec.freqs, 16000),
        math.floor(muted)
end

-- The module: from LUA_CPATH or Lua's own places, else from the build directory beside this one.
function setup.module()
    package.cpath = package.cpath .. ";" .. here .. "../build/host/?.so"
    local found, echo = pcall(require, "echo")
    if not found then setup.fail(1, "cannot load echo.so; build it or set LUA_CPATH\n%s", echo) end
    return echo
end

-- An echo object for frames of `frame_len` samples. Lua counts a few bytes for it, while the
-- canceller holds 200 to 330 kB: who lets go of one object and makes another, again and again, calls
-- collectgarbage() in between.
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
