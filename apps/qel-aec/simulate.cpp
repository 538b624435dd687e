// qel-aec simulate: a recording of a simulated room, good or wrong in a chosen way.
#include <memory>

#include "command.hpp"
#include "failure.hpp"
#include "files.hpp"
#include "scene.hpp"

namespace app {

namespace {

struct Options {
    SceneOptions scene;
    std::string folder, far, near;
    bool no_near = false;
    CLI::Option* seconds = nullptr;
};

/// A talker's file at the scene's rate; nothing without a file.
Signal read_talker(const std::string& path, int rate) {
    if (path.empty()) return {};
    Recording talker = read_mono(path);
    if (talker.rate == rate) return std::move(talker.samples);
    return resampled(talker.samples, static_cast<double>(rate) / talker.rate);
}

int simulate(const Options& options) {
    SceneOptions scene_options = options.scene;
    scene_options.near_end = !options.no_near;
    std::vector<std::filesystem::path> inputs;
    for (const std::string& path : {options.far, options.near}) {
        if (!path.empty()) inputs.emplace_back(path);
    }
    Outputs outputs(options.folder, inputs);
    Signal far = read_talker(options.far, scene_options.rate);
    if (!far.empty() && options.seconds->count() == 0) {
        scene_options.seconds = static_cast<double>(far.size()) / scene_options.rate;
    }
    const Scene scene =
        make_scene(scene_options, std::move(far), read_talker(options.near, scene_options.rate));
    write_wav(outputs.add("mic.wav"), scene_options.rate, scene.mic);
    write_wav(outputs.add("ref.wav"), scene_options.rate, scene.ref);
    write_wav(outputs.add("near.wav"), scene_options.rate, scene.near);
    outputs.commit();
    std::printf("%s: mic.wav, ref.wav and near.wav, %.2f s at %d Hz\n", options.folder.c_str(),
                scene_options.seconds, scene_options.rate);
    return 0;
}

}  // namespace

Command add_simulate(CLI::App& program) {
    auto options = std::make_shared<Options>();
    SceneOptions& scene = options->scene;
    CLI::App* app = program.add_subcommand(
        "simulate",
        "Makes mic.wav, ref.wav and near.wav of a loudspeaker, a talker and a "
        "microphone in a simulated room.");
    add_folder(app, &options->folder);
    app->add_option("--seed", scene.seed, "another one gives other voices and another room")
        ->capture_default_str();
    options->seconds = app->add_option("--seconds", scene.seconds, "length, that of --far or 30")
                           ->check(CLI::Range(0.5, 3600.0));
    app->add_option("--rate", scene.rate, "sample rate in Hz")
        ->capture_default_str()
        ->check(CLI::Range(4000, 192000));
    app->add_option("--rt60", scene.rt60, "reverberation time in s; 0: the direct sound alone")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 5.0));
    app->add_option("--delay", scene.delay_ms,
                    "ms from the reference to the first sound of its echo; negative: the "
                    "reference is late")
        ->capture_default_str()
        ->check(CLI::Range(-5000.0, 5000.0));
    app->add_option("--drift", scene.drift_ppm,
                    "ppm by which the echo comes later and later: the clocks differ")
        ->capture_default_str()
        ->check(CLI::Range(-5000.0, 5000.0));
    app->add_option("--clip", scene.clip_db,
                    "the loudspeaker clips this many dB below the reference's peak")
        ->check(CLI::Range(0.0, 60.0));
    app->add_option("--echo", scene.echo_db, "dB of the echo over the reference")
        ->capture_default_str()
        ->check(CLI::Range(-100.0, 40.0));
    app->add_option("--noise", scene.noise_db, "dB of the echo over the background noise")
        ->capture_default_str()
        ->check(CLI::Range(-40.0, 100.0));
    app->add_option("--path-change", scene.change_at, "s after which the room is another one")
        ->check(CLI::Range(0.0, 3600.0));
    app->add_option("--move-delay", scene.move_ms, "ms added to the delay at the path change")
        ->check(CLI::Range(-5000.0, 5000.0))
        ->needs("--path-change");
    app->add_flag("--invert", scene.inverted, "the echo has the other sign");
    app->add_flag("--swap", scene.swapped, "microphone and reference change places");
    app->add_flag("--no-near", options->no_near,
                  "nobody talks at the near end; else he does in the second half, and the far end "
                  "falls silent in the last fifth");
    app->add_option("--far", options->far,
                    "mono file to play instead of the generated talker, as it is");
    app->add_option("--near", options->near, "mono file of the near end's talker likewise")
        ->excludes("--no-near");
    return {app, [options] { return simulate(*options); }};
}

}  // namespace app
