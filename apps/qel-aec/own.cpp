#include "own.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "failure.hpp"

namespace app {

namespace {

/// Holds what a child writes: no pipe that fills while nobody reads.
class Capture {
  public:
    Capture() : file_(memfd_create("qel-aec", MFD_CLOEXEC)) {
        if (file_ < 0) throw Failure(std::string("no memory for results: ") + std::strerror(errno));
    }
    ~Capture() { close(file_); }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    int file() const { return file_; }

    std::string text() const {
        std::string text(static_cast<size_t>(lseek(file_, 0, SEEK_END)), ' ');
        const ssize_t got = pread(file_, text.data(), text.size(), 0);
        text.resize(static_cast<size_t>(got < 0 ? 0 : got));
        return text;
    }

  private:
    int file_;
};

}  // namespace

std::string own_path() { return std::filesystem::read_symlink("/proc/self/exe").string(); }

Done call_own(const std::vector<std::string>& words) {
    const std::string program = own_path();
    std::vector<char*> argv = {const_cast<char*>(program.c_str())};
    for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    const Capture out, error;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, out.file(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, error.file(), STDERR_FILENO);
    pid_t child = 0;
    const int failed = posix_spawn(&child, "/proc/self/exe", &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (failed) throw Failure(program + ": " + std::strerror(failed));
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return {code, out.text(), error.text()};
}

}  // namespace app
