// Result files that appear whole and together, or not at all.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace app {

/// Throws unless `path` is a regular file; a device or a pipe would never end.
void check_input(const std::filesystem::path& path);

/// The results of one command in a folder, which is made if need be. Each is written beside its
/// place and takes it in commit(); what was not committed is removed.
class Outputs {
  public:
    /// `inputs` are the files that no result may replace.
    Outputs(std::filesystem::path folder, std::vector<std::filesystem::path> inputs);
    ~Outputs();
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;

    /// A new empty file to write the result `name` into. Throws if its place is held by an input or
    /// by anything but a regular file.
    std::string add(const std::string& name);
    void add_text(const std::string& name, const std::string& text);

    void commit();

  private:
    struct Result {
        std::filesystem::path temporary, place;
    };
    std::filesystem::path folder_;
    std::vector<std::filesystem::path> inputs_;
    std::vector<Result> results_;
};

}  // namespace app
