#include "benchmarks/peers/frames.hpp"

#include <malloc.h>

#include <cstdio>
#include <deque>

#include "benchmarks/peers/measure.hpp"
#include "benchmarks/peers/transforms.hpp"
#ifdef QEL_WEBRTC
#include "benchmarks/peers/webrtc.hpp"
#endif
#include "tests/support/canceller.hpp"
#include "tests/support/signals.hpp"

namespace {

constexpr int kRate = 16000;
constexpr size_t kFrame = 512;
constexpr size_t kFrames = 100;  // of a scene; it lasts a whole number of 10 ms too
constexpr double kSeconds = 2;
// Letters of the tracking mode's switches, see AecSettings.
constexpr const char* kTracking[] = {"K", "KR", "A", "KRA", "KRAN"};

struct Scene {
    Pcm mic, ref;
    size_t size() const { return mic.size(); }
};

/// Speech from a loudspeaker in a small room, and a little noise.
Scene make_scene(size_t samples, int rate) {
    const Signal ref = speech(1, samples, rate, 2000);
    const Signal noise = white_noise(2, samples, 30);
    return {to_pcm(echo(ref, 1e9, room_response(3, 0.01, 0.1, rate)) + noise), to_pcm(ref)};
}

/// Both signals sample by sample: `sample(i)` at the loudspeaker, a share of it at the microphone.
template <class Sample>
Scene make_scene(size_t frames, Sample sample, double mic_share) {
    Signal ref(frames * kFrame), mic(ref.size());
    for (size_t i = 0; i < ref.size(); ++i) mic[i] = mic_share * (ref[i] = sample(i));
    return {to_pcm(mic), to_pcm(ref)};
}

const Scene& speech_scene() {
    static const Scene scene = make_scene(kFrames * kFrame, kRate);
    return scene;
}

/// For the configuration of a canceller: once the reference has sounded it stays active, as
/// speech's pauses would end that at some frame sizes and not at others.
void without_pauses(qel_aec_cfg& cfg) {
    for (qel_svad_cfg& vad : cfg.vad) vad.spe2sil_num = 1 << 20;
}

/// A canceller that is fed a scene again and again, frame by frame, as a host does. What is timed
/// is a whole scene, so that every round is the same work.
class Stream {
  public:
    Stream(const Scene& scene, const AecSettings& settings)
        : scene_(scene),
          frame_(static_cast<size_t>(settings.frame)),
          canceller_(settings, without_pauses) {}
    void start_at(size_t frame) { at_ = frame * frame_ % scene_.size(); }
    void step() {
        const auto bytes = static_cast<uint32_t>(2 * frame_);
        qel_aec_feed_data(canceller_.get(), &scene_.mic[at_], bytes, &scene_.ref[at_], bytes, 0,
                          nullptr);
        at_ = (at_ + frame_) % scene_.size();
    }
    void run() {
        for (size_t i = 0; i < frames(); ++i) step();
    }
    Work work() {
        return {[this] { run(); }, static_cast<double>(frames())};
    }
    Canceller& canceller() { return canceller_; }

  private:
    size_t frames() const { return scene_.size() / frame_; }

    const Scene& scene_;
    size_t frame_, at_ = 0;
    Canceller canceller_;
};

/// Whether the echo of a scene is gone from what became of it when it was heard the second time.
void check_reduction(const Scene& scene, const Pcm& out, const char* whose) {
    const double db = erle_db(scene.mic, out);
    std::printf("reduction\t%s\t%.1f\n", whose, db);
    check(db > 6, std::string("the echo of ") + whose + " is not cancelled");
}

#ifdef QEL_WEBRTC
/// The scene through WebRTC's canceller, over and over.
class WebrtcStream {
  public:
    WebrtcStream(bool extended, const char* name) : canceller_(extended), out_(scene_.size()) {
        run();
        run();
        check_reduction(scene_, out_, name);
    }
    void run() {
        for (size_t at = 0; at < scene_.size(); at += WebrtcCanceller::kFrame)
            check(canceller_.feed(&scene_.mic[at], &scene_.ref[at], &out_[at]),
                  "WebRTC refuses a frame");
    }
    Work work() {
        return {[this] { run(); }, kFrames};
    }

  private:
    const Scene& scene_ = speech_scene();
    WebrtcCanceller canceller_;
    Pcm out_;
};
#endif

/// Instances that take turns, a frame each, at different places of the scene.
class Crowd {
  public:
    Crowd(const Scene& scene, size_t count, const AecSettings& settings = {}) {
        for (size_t i = 0; i < count; ++i) {
            Stream& stream = streams_.emplace_back(scene, settings);
            stream.start_at(i * std::max<size_t>(kFrames / count, 1));
            for (int k = 0; k < 5; ++k) stream.step();
        }
    }
    Work work() {
        return {[this] {
                    for (size_t i = 0; i < kFrames; ++i) {
                        streams_[next_].step();
                        next_ = (next_ + 1) % streams_.size();
                    }
                },
                kFrames};
    }

  private:
    std::deque<Stream> streams_;
    size_t next_ = 0;
};

}  // namespace

void compare_canceller() {
    const Scene& scene = speech_scene();
    Stream ours(scene, {});
    ours.run();
    check_reduction(scene, ours.canceller().feed(scene.mic, scene.ref), "this library");

    // Apart from WebRTC, whose slices are far longer.
    compare(ours.work(), {{"frame: FFTW's transforms", fftw_transforms_of_a_frame(2 * kFrame)}},
            kSeconds);
#ifdef QEL_WEBRTC
    WebrtcStream plain(false, "WebRTC"), extended(true, "WebRTC, extended");
    compare(ours.work(),
            {{"frame: WebRTC", plain.work()}, {"frame: WebRTC extended", extended.work()}},
            3 * kSeconds);
#endif
}

void compare_signals() {
    const AecSettings settings = {.vad = false};  // every frame is processed
    const Scene& talk = speech_scene();
    constexpr size_t kLong = 400;  // frames: what decays for as long gets subnormal
    const auto word = [&](size_t i) { return i < 20 * kFrame ? talk.ref[i] : 0.0; };
    const auto once = [](size_t i) { return i == 0 ? 1.0 : 0.0; };
    const auto wave = [](size_t i) { return i / 40 % 2 ? 32767.0 : -32768.0; };
    const auto shift = [](size_t) { return 30000.0; };
    const Scene scenes[] = {make_scene(kLong, word, 0.5), make_scene(kLong, once, 1),
                            make_scene(kFrames, wave, 0.5), make_scene(kFrames, shift, 0.5),
                            make_scene(kFrames, shift, 0)};
    Stream usual(talk, settings);
    std::deque<Stream> streams;
    for (const Scene& scene : scenes) streams.emplace_back(scene, settings).run();
    compare(usual.work(),
            {{"signal: silence after speech", streams[0].work()},
             {"signal: one click in silence, all decays to subnormals", streams[1].work()},
             {"signal: square wave of full scale", streams[2].work()},
             {"signal: constant", streams[3].work()},
             {"signal: constant, the microphone silent", streams[4].work()}},
            3 * kSeconds);
}

void compare_tracking() {
    const Scene& scene = speech_scene();
    Stream usual(scene, {});
    usual.run();
    std::deque<Stream> streams;
    std::vector<std::pair<std::string, Work>> works;
    for (const char* switches : kTracking) {
        Stream& stream = streams.emplace_back(scene, AecSettings{.tracking = switches});
        stream.run();
        check(erle_db(scene.mic, stream.canceller().feed(scene.mic, scene.ref)) > 6,
              std::string("the echo is not cancelled with the switches ") + switches);
        works.emplace_back(std::string("tracking: ") + switches, stream.work());
    }
    compare(usual.work(), works, 3 * kSeconds);
}

void compare_instances() {
    Crowd one(speech_scene(), 1), many(speech_scene(), 1000);
    compare(one.work(), {{"instances: 1000", many.work()}}, 2 * kSeconds);
}

void print_memory() {
    const auto print = [](const std::string& name, const char* switches) {
        const auto held = [] {
            const auto info = mallinfo2();
            return info.uordblks + info.hblkhd;
        };
        constexpr size_t kCount = 20;
        const size_t before = held();
        const Crowd crowd(speech_scene(), kCount, {.tracking = switches});
        std::printf("bytes\t%s\t%zu\n", name.c_str(), (held() - before) / kCount);
    };
    print("instance", nullptr);
    for (const char* switches : kTracking) print(std::string("tracking: ") + switches, switches);
}

void cost_by_settings() {
    std::deque<Scene> scenes;
    std::deque<Stream> streams;
    std::vector<std::pair<std::string, Work>> works;
    const auto add = [&](const std::string& name, const Scene& scene, const AecSettings& settings) {
        Stream& stream = streams.emplace_back(scene, settings);
        stream.run();
        const uint64_t bypassed = stream.canceller().stats().bypassed;
        stream.run();
        check((stream.canceller().stats().bypassed == bypassed) == !name.starts_with("bypassed"),
              name + ": frames take the wrong path");
        works.emplace_back(name, stream.work());
    };
    for (const int frame : {160, 256, 320, 512, 1024})
        add("frame " + std::to_string(frame), speech_scene(), {.frame = frame});
    for (const int taps : {1, 2, 4, 8, 12})
        add("taps " + std::to_string(taps), speech_scene(), {.taps = taps});
    for (const int rate : {8000, 16000, 32000}) {
        const Scene& scene = scenes.emplace_back(make_scene(kFrames * kFrame, rate));
        add("rate " + std::to_string(rate), scene, {.rate = rate});
    }
    const Scene bypassed = {speech_scene().mic, Pcm(speech_scene().mic.size())};
    add("bypassed 512", bypassed, {});
    std::deque<Crowd> crowds;
    for (const size_t count : {1, 10, 100, 1000})
        works.emplace_back("instances " + std::to_string(count),
                           crowds.emplace_back(speech_scene(), count).work());
    cost(works, 5 * kSeconds);
}
