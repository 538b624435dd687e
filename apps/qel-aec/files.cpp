#include "files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include "failure.hpp"

namespace app {

namespace fs = std::filesystem;

namespace {

mode_t current_umask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

void write_back(const fs::path& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool failed = file < 0 || fsync(file) != 0;
    if (file >= 0) close(file);
    if (failed) throw Failure(path.string() + ": " + std::strerror(errno));
}

}  // namespace

void check_input(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status)) throw Failure(path.string() + ": there is no such file");
    if (!fs::is_regular_file(status)) throw Failure(path.string() + ": is no regular file");
}

Outputs::Outputs(fs::path folder, std::vector<fs::path> inputs)
    : folder_(std::move(folder)), inputs_(std::move(inputs)) {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (!fs::is_directory(folder_)) {
        throw Failure(folder_.string() + ": cannot be made a folder for the results" +
                      (error ? ": " + error.message() : ""));
    }
}

Outputs::~Outputs() {
    std::error_code ignored;
    for (const Result& result : results_) fs::remove(result.temporary, ignored);
}

std::string Outputs::add(const std::string& name) {
    const fs::path place = folder_ / name;
    std::error_code none;
    const fs::file_status status = fs::symlink_status(place, none);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        throw Failure(place.string() + ": is no regular file, so it is not replaced");
    }
    for (const fs::path& input : inputs_) {
        if (fs::exists(status) && fs::equivalent(place, input, none)) {
            throw Failure(place.string() + ": is an input (" + input.string() +
                          "), so it is not replaced: choose another folder");
        }
    }
    std::string temporary = (folder_ / ("." + name + ".XXXXXX")).string();
    const int file = mkostemp(temporary.data(), O_CLOEXEC);
    if (file < 0) throw Failure(folder_.string() + ": " + std::strerror(errno));
    results_.push_back({temporary, place});
    fchmod(file, 0666 & ~current_umask());
    close(file);
    return temporary;
}

void Outputs::add_text(const std::string& name, const std::string& text) {
    const std::string path = add(name);
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) throw Failure(path + ": cannot be written");
}

void Outputs::commit() {
    for (const Result& result : results_) write_back(result.temporary);
    for (const Result& result : results_) fs::rename(result.temporary, result.place);
    results_.clear();
}

}  // namespace app
