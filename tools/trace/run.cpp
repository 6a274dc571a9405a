// SPDX-License-Identifier: MIT
#include "run.h"

#include "input.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vektrace {

namespace fs = std::filesystem;

namespace {

// Beside vek-trace when both are installed, in the neighbouring folder where they were built, else
// wherever PATH has it.
std::string find_recorder()
{
    std::error_code error;
    const fs::path own = fs::read_symlink("/proc/self/exe", error).parent_path();
    if (!error) {
        for (const fs::path &place : {own / "vek-record", own / "../record/vek-record"}) {
            if (access(place.c_str(), X_OK) == 0) {
                return place.string();
            }
        }
    }
    return "vek-record";
}

volatile sig_atomic_t recorder_pid = 0;

void pass_on(int signal)
{
    if (recorder_pid != 0) {
        kill(static_cast<pid_t>(recorder_pid), signal);
    }
}

/** Lets the program decide what signals do, as long as the object exists. */
class SignalsForProgram {
public:
    SignalsForProgram()
    {
        // The terminal sends these to the program as well.
        set(SIGINT, SIG_IGN, old_int_);
        set(SIGQUIT, SIG_IGN, old_quit_);
        set(SIGHUP, pass_on, old_hup_);
        set(SIGTERM, pass_on, old_term_);
    }

    ~SignalsForProgram()
    {
        recorder_pid = 0;
        sigaction(SIGINT, &old_int_, nullptr);
        sigaction(SIGQUIT, &old_quit_, nullptr);
        sigaction(SIGHUP, &old_hup_, nullptr);
        sigaction(SIGTERM, &old_term_, nullptr);
    }

    SignalsForProgram(const SignalsForProgram &) = delete;
    SignalsForProgram &operator=(const SignalsForProgram &) = delete;

    /** The signals that the program shall not inherit as ignored. */
    sigset_t defaults() const
    {
        sigset_t set;
        sigemptyset(&set);
        if (old_int_.sa_handler != SIG_IGN) {
            sigaddset(&set, SIGINT);
        }
        if (old_quit_.sa_handler != SIG_IGN) {
            sigaddset(&set, SIGQUIT);
        }
        return set;
    }

private:
    static void set(int signal, void (*handler)(int), struct sigaction &old)
    {
        struct sigaction action = {};
        action.sa_handler = handler;
        sigaction(signal, &action, &old);
    }

    struct sigaction old_int_ = {};
    struct sigaction old_quit_ = {};
    struct sigaction old_hup_ = {};
    struct sigaction old_term_ = {};
};

int wait_for(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            throw InputError(std::string("vek-record: ") + std::strerror(errno));
        }
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

TemporaryFolder::TemporaryFolder()
{
    const char *const parent = std::getenv("TMPDIR");
    path_ =
        std::string(parent != nullptr && *parent != '\0' ? parent : "/tmp") + "/vek-trace.XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) {
        throw InputError(path_ + ": " + std::strerror(errno) +
                         " (TMPDIR names the folder for temporary files)");
    }
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code error;
    fs::remove_all(path_, error);
}

int record(const std::string &folder, unsigned depth, const std::vector<std::string> &program)
{
    std::vector<std::string> words = {find_recorder(), "-q", "-o", folder};
    if (depth != 0) {
        words.insert(words.end(), {"--depth", std::to_string(depth)});
    }
    words.emplace_back("--");
    words.insert(words.end(), program.begin(), program.end());
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);

    const SignalsForProgram signals;
    const sigset_t defaults = signals.defaults();
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    pid_t pid = 0;
    const int error =
        posix_spawnp(&pid, words[0].c_str(), nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw InputError(words[0] + ": " + std::strerror(error) +
                         " (vek-record belongs to vek-trace; install it beside it)");
    }
    recorder_pid = pid;
    return wait_for(pid);
}

} // namespace vektrace
