// Any configuration, then up to a second of any sound in pieces of any size: the bytes that come
// out are those that went in, all states stay finite, and a reset gives a new canceller.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qel/api/qel_api_aec.h"
#include "tests/support/states.hpp"

namespace {

/// A value for a key: mostly one that works, else of its neighbourhood, of any width, or no number.
std::string value(FuzzedDataProvider* input, int32_t least, int32_t most) {
    switch (input->ConsumeIntegralInRange(0, 15)) {
        case 0: return std::to_string(input->ConsumeIntegral<int64_t>());
        case 1:
            return std::to_string(input->PickValueInArray({least - 1, most + 1, 65536 + least}));
        case 2: return '"' + input->ConsumeRandomLengthString(6) + '"';
        default: return std::to_string(input->ConsumeIntegralInRange(least, most));
    }
}

std::string flag(FuzzedDataProvider* input) {
    return input->PickValueInArray({"1", "yes", "0", "on", "TRUE", "\"\""});
}

std::string configuration(FuzzedDataProvider* input) {
    std::string text = "aec = {";
    const auto key = [&](const char* name, const std::string& v) {
        if (input->ConsumeBool()) text += std::string(" ") + name + " = " + v + ";";
    };
    key("freqs", value(input, 700, 32767));
    key("frame_size", value(input, 2, 700));
    key("taps", value(input, 1, 12));
    key("offset_bins", value(input, 0, 900));
    key("nb_banks", value(input, 12, 64));
    key("type", input->PickValueInArray({"fixed16", "fixed32", "float32", "x"}));
    key("use_nlp", flag(input));
    key("use_mute", flag(input));
    key("use_vad", flag(input));
    key("use_hdr", flag(input));
    for (const char* name : {"use_kalman", "use_residual", "use_align", "use_comfort"}) {
        key(name, flag(input));
    }
    text += " nlp = {";
    key("freqs", value(input, 700, 32767));
    key("frame_size", value(input, 2, 700));
    key("nb_banks", value(input, 12, 200));
    text += " } mute = {";
    key("mute_time", value(input, 0, 2));
    text += " } vad = {";
    key("amp_thresh", input->PickValueInArray({"0", "5", "-1", "1e9", "nan", "inf"}));
    key("sil2spe_num", value(input, -1, 5));
    key("spe2sil_num", value(input, -1, 5));
    return text + " } }";
}

/// A file of these bytes, by a name that is always the same.
const char* file_of(const std::string& text) {
    static const int file = memfd_create("configuration", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    require(ftruncate(file, 0) == 0);
    require(pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    return path.c_str();
}

enum Sound { kSilence, kNoise, kSquare, kFull, kConstant, kBytes, kSounds };

std::vector<uint8_t> sound(FuzzedDataProvider* input, size_t bytes) {
    std::vector<uint8_t> pcm(bytes);
    const auto kind = input->ConsumeIntegralInRange<int>(0, kSounds - 1);
    uint32_t seed = input->ConsumeIntegral<uint16_t>();
    const uint32_t period = seed % 97 + 1, shift = seed % 16;
    for (size_t i = 0; i + 1 < bytes; i += 2) {
        seed = seed * 1664525u + 1013904223u;
        const bool high = i / 2 / period % 2;
        int32_t x = 0;
        switch (kind) {
            case kNoise: x = static_cast<int16_t>(seed >> 16) >> shift; break;
            case kSquare: x = (high ? 32767 : -32768) >> shift; break;
            case kFull: x = i & 2 ? 32767 : -32768; break;
            case kConstant: x = 32767 >> shift; break;
            default: break;
        }
        const auto sample = static_cast<int16_t>(x);
        memcpy(&pcm[i], &sample, 2);
    }
    if (kind == kBytes) {
        const auto own = input->ConsumeBytes<uint8_t>(std::min<size_t>(bytes, 512));
        for (size_t i = 0; i < bytes && !own.empty(); ++i) pcm[i] = own[i % own.size()];
    }
    return pcm;
}

/// Bytes of one signal that wait, as frames and as a rest.
struct Waiting {
    size_t frame_bytes, frames = 0, rest = 0;
    void add(size_t bytes, bool end) {
        rest += bytes;
        frames += rest / frame_bytes;
        rest %= frame_bytes;
        if (end && rest > 0) ++frames, rest = 0;
    }
};

/// One call to the canceller with its promise about the number of bytes.
struct Stream {
    qel_api_aec_t* api;
    Waiting mic, ref;
    explicit Stream(qel_api_aec_t* a)
        : api(a),
          mic{static_cast<size_t>(a->cfg->frame_size) * (a->cfg->use_hdr ? 4 : 2)},
          ref(mic) {}
    std::string feed(const std::vector<uint8_t>& m, const std::vector<uint8_t>& r, bool end) {
        mic.add(m.size(), end);
        ref.add(r.size(), end);
        const size_t frames = std::min(mic.frames, ref.frames);
        mic.frames -= frames;
        ref.frames -= frames;
        uint32_t bytes = 1;
        const char* out =
            qel_api_aec_feed_data(api, m.data(), static_cast<uint32_t>(m.size()), r.data(),
                                  static_cast<uint32_t>(r.size()), end, &bytes);
        require(bytes == frames * 2 * static_cast<size_t>(api->cfg->frame_size));
        return {out, bytes};
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const char* const path = file_of(configuration(&input));
    qel_api_aec_t* const api = qel_api_aec_new(path, 0);
    if (!api) return 0;
    const auto n = static_cast<size_t>(api->cfg->frame_size);
    if (n * static_cast<size_t>(api->cfg->taps) > 16384 || api->cfg->nlp.nb_banks > 4096) {
        qel_api_aec_delete(api);  // works, but slowly
        return 0;
    }
    size_t frames = std::min<size_t>(input.ConsumeIntegralInRange(1, 31), 16000 / n + 1);
    const size_t sample = api->cfg->use_hdr ? 4 : 2;
    Stream used(api);
    struct Call {
        std::vector<uint8_t> mic, ref;
    };
    std::vector<Call> calls;
    srand(1);
    for (size_t i = 0; i < 16 && frames > 0; ++i) {
        const size_t some = input.ConsumeIntegralInRange<size_t>(1, frames);
        const size_t most = some * n * sample + 3;
        frames -= some;
        const auto bytes = [&] {
            return sound(&input, input.ConsumeBool()
                                     ? most - 3
                                     : input.ConsumeIntegralInRange<size_t>(0, most));
        };
        auto mic = bytes();
        calls.push_back({std::move(mic), bytes()});
        used.feed(calls.back().mic, calls.back().ref, input.ConsumeBool() && frames == 0);
        require(all_states(*api->aec, is_finite));
    }
    // The last calls once more, after a reset and through a new one.
    qel_api_aec_reset(api);
    qel_api_aec_t* const fresh = qel_api_aec_new(path, 0);
    require(fresh != nullptr);
    used = Stream(api);
    Stream anew(fresh);
    std::string outs[2];
    for (Stream* stream : {&used, &anew}) {
        srand(1);
        for (size_t i = calls.size() > 3 ? calls.size() - 3 : 0; i < calls.size(); ++i) {
            outs[stream == &anew] += stream->feed(calls[i].mic, calls[i].ref, false);
        }
    }
    require(outs[0] == outs[1]);
    qel_api_aec_delete(fresh);
    qel_api_aec_delete(api);
    return 0;
}
