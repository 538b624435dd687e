-- Removes the echo of REF from MIC as cancel.lua does, but calls the C functions of echo.so through
-- LuaJIT's FFI instead of the Lua module.
local usage = [[
usage: luajit ffi.lua [--config F] MIC.wav REF.wav OUT.wav
  MIC, REF    mono 16-bit WAV files at the rate of the configuration, recorded in step
  OUT         the microphone without echo, in step with MIC; written only when all went well
  --config F  configuration (conf/aec.conf beside this directory)
Messages are on standard error.]]

local script_dir = arg[0]:match("^(.*/)") or "./"
package.path = script_dir .. "?.lua;" .. package.path
local setup, wav = require("setup"), require("wav")
if not jit then setup.fail(2, "this is for LuaJIT; cancel.lua does the same in any Lua 5.1") end
local ffi = require("ffi")

-- From the headers qel/api/qel_api_aec.h and those that it includes, and qel/core/qel_debug.h. What
-- is not read here stands as bytes of its size.
ffi.cdef [[
typedef struct FILE FILE;
typedef struct qel_aec_cfg {
    uint8_t nlp[20], mute[24], vad[56];
    const char* type;
    uint32_t md_type;
    int16_t hdr_gain_db, freqs, frame_size, taps, offset_bins, nb_banks, fft_size, fft_bins;
    int16_t num_bank;
    uint32_t use_nlp : 1, use_vad : 1, use_bypass : 1, use_hdr : 1, use_mute : 1, flags_spare : 3;
    void* cfg_tree;
} qel_aec_cfg;
typedef struct qel_api_aec_t {
    qel_aec_cfg* cfg;
    void *aec, *reserved;
    uint32_t cfg_is_binary : 1, flags_spare : 7;
} qel_api_aec_t;
typedef struct qel_aec_measures {
    float mic_db, ref_db, out_db, leak, speech, reduction_db;
} qel_aec_measures;
typedef struct qel_aec_stats {
    uint64_t bypassed, muted, processed;
    qel_aec_measures frame, smoothed;
} qel_aec_stats;
qel_api_aec_t* qel_api_aec_new(const char* path, uint32_t is_bin);
const char* qel_api_aec_last_error(void);
void qel_api_aec_delete(qel_api_aec_t* api);
const char* qel_api_aec_feed_data(qel_api_aec_t* api, const void* mic, uint32_t mic_bytes,
                                  const void* ref, uint32_t ref_bytes, uintptr_t is_end,
                                  uint32_t* out_bytes);
int32_t qel_api_aec_get_stats(const qel_api_aec_t* api, qel_aec_stats* stats);
void qel_debug_set_log_fp(FILE* stream);
]]

local CHUNK = 65536 -- bytes per feed; the canceller cuts its frames itself

local options, files = setup.options(usage, 1, 3)
local target = setup.target(files[3], files[1], files[2])

-- echo.so, found as require() finds the module, and a canceller of it.
local path, places = package.searchpath("echo", package.cpath .. ";" .. script_dir
    .. "../build/host/?.so")
if not path then setup.fail(1, "cannot find echo.so; build it or set LUA_CPATH%s", places) end
local qel = ffi.load(path)
qel.qel_debug_set_log_fp(io.stderr)
local canceller = qel.qel_api_aec_new(options.config, 0)
if canceller == nil then
    setup.fail(1, "%s: %s", options.config, ffi.string(qel.qel_api_aec_last_error()))
end
local cfg = canceller.cfg

local function fail(...)
    qel.qel_api_aec_delete(canceller)
    setup.fail(1, ...)
end
if cfg.use_hdr ~= 0 then fail("%s: use_hdr is for 32-bit samples", options.config) end

local function read(file)
    local samples, rate = wav.read(file)
    if not samples then fail("%s", rate) end
    if rate == cfg.freqs then return samples end
    fail("%s: its rate is %d Hz, the configuration's %d Hz", file, rate, cfg.freqs)
end
local mic, ref = read(files[1]), read(files[2])

-- Both become as long as the longer one and a frame more, as the output runs one frame behind.
local bytes, frame_bytes = math.max(#mic, #ref), 2 * cfg.frame_size
local function padded(samples) return samples .. ("\0"):rep(bytes + frame_bytes - #samples) end
mic, ref = padded(mic), padded(ref)

local out, out_bytes = {}, ffi.new("uint32_t[1]")
for at = 1, #mic, CHUNK do
    local mic_part, ref_part = mic:sub(at, at + CHUNK - 1), ref:sub(at, at + CHUNK - 1)
    local clean = qel.qel_api_aec_feed_data(canceller, mic_part, #mic_part, ref_part, #ref_part,
        at + CHUNK > #mic and 1 or 0, out_bytes)
    out[#out + 1] = ffi.string(clean, out_bytes[0])
end
local samples = table.concat(out):sub(frame_bytes + 1, frame_bytes + bytes)
local done, fault = wav.write(target, samples, cfg.freqs)
if not done then fail("%s", fault) end

local stats = ffi.new("qel_aec_stats")
qel.qel_api_aec_get_stats(canceller, stats)
qel.qel_api_aec_delete(canceller)
io.stderr:write(("echo reduction %.1f dB at the end; frames: %d bypassed, %d muted, %d processed\n")
    :format(stats.smoothed.reduction_db, tonumber(stats.bypassed), tonumber(stats.muted),
        tonumber(stats.processed)))
