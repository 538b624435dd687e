#include "command.hpp"

namespace app {

void add_pair(CLI::App* app, std::vector<std::string>* paths) {
    app->add_option("RECORDING", *paths,
                    "microphone and reference: two mono files, or one stereo file, microphone "
                    "first (WAV, FLAC)")
        ->required()
        ->expected(1, 2);
}

void add_configuration(CLI::App* app, std::string* path) {
    app->add_option("-c,--config", *path, "configuration")->required()->type_name("CONF");
}

void add_folder(CLI::App* app, std::string* path) {
    app->add_option("-o,--output", *path, "folder to write into")->required()->type_name("DIR");
}

void add_json(CLI::App* app, bool* json) { app->add_flag("--json", *json, "for programs"); }

void add_resample(CLI::App* app, bool* resample) {
    app->add_flag("--resample", *resample, "convert to the configuration's rate");
}

}  // namespace app
