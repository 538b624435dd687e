// Paths that no other test has, in the temporary folder: tests run side by side.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

/// A new folder, removed at the end with all that is in it.
class TempFolder {
  public:
    TempFolder() : folder_(testing::TempDir() + "qel.XXXXXX") {
        if (!mkdtemp(folder_.data())) ADD_FAILURE() << "no temporary folder " << folder_;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /// The folder, or what has this name in it.
    std::string path(const std::string& name = "") const {
        return name.empty() ? folder_ : folder_ + "/" + name;
    }
    /// Makes a file of this content and gives its path.
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

  private:
    std::string folder_;
};
