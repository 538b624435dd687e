#include "benchmarks/peers/webrtc.hpp"

#include <webrtc/common.h>
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#include <webrtc/modules/interface/module_common_types.h>

#include <algorithm>

struct WebrtcParts {
    std::unique_ptr<webrtc::AudioProcessing> processing;
    webrtc::AudioFrame mic, ref;
};

WebrtcCanceller::WebrtcCanceller(bool extended) : parts_(std::make_unique<WebrtcParts>()) {
    webrtc::Config config;
    config.Set<webrtc::ExtendedFilter>(new webrtc::ExtendedFilter(extended));
    parts_->processing.reset(webrtc::AudioProcessing::Create(config));
    auto& processing = *parts_->processing;
    using Layout = webrtc::AudioProcessing;
    processing.Initialize(kRate, kRate, kRate, Layout::kMono, Layout::kMono, Layout::kMono);
    processing.echo_cancellation()->Enable(true);
    if (extended) {
        processing.noise_suppression()->set_level(webrtc::NoiseSuppression::kHigh);
        processing.noise_suppression()->Enable(true);
    }
    for (webrtc::AudioFrame* frame : {&parts_->mic, &parts_->ref}) {
        frame->sample_rate_hz_ = kRate;
        frame->num_channels_ = 1;
        frame->samples_per_channel_ = kFrame;
    }
}
WebrtcCanceller::WebrtcCanceller(WebrtcCanceller&&) noexcept = default;
WebrtcCanceller::~WebrtcCanceller() = default;

bool WebrtcCanceller::feed(const int16_t* mic, const int16_t* ref, int16_t* out) {
    auto& [processing, mic_frame, ref_frame] = *parts_;
    std::copy_n(ref, kFrame, ref_frame.data_);
    std::copy_n(mic, kFrame, mic_frame.data_);
    bool done = processing->AnalyzeReverseStream(&ref_frame) == 0;
    processing->set_stream_delay_ms(0);
    done = processing->ProcessStream(&mic_frame) == 0 && done;
    std::copy_n(mic_frame.data_, kFrame, out);
    return done;
}
