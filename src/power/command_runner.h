#pragma once
#include <memory>
#include <string>
#include <vector>

namespace duskwell {

// The outcome of one external program: its exit status (-1 when it could not be started)
// and everything it wrote to stdout and stderr, in one stream, as UTF-8.
struct CommandResult {
    int status = -1;
    std::string output;
};

// A child process that outlives our interest in it (the crash watchdog). Destroying the
// handle does not end the child; `terminate` does.
class ChildProcess {
public:
    virtual ~ChildProcess() = default;
    virtual int pid() const = 0;
    virtual void terminate() = 0;
};

class CommandRunner {
public:
    virtual ~CommandRunner() = default;
    // Runs `path` with `args` (no shell), reads its output to the end, then waits for it.
    virtual CommandResult run(const std::string& path, const std::vector<std::string>& args) = 0;
    // Starts `path` in its own session without waiting for it or reading its output.
    // Nothing when it cannot be started.
    virtual std::unique_ptr<ChildProcess> spawnDetached(const std::string& path,
                                                        const std::vector<std::string>& args) = 0;
};

// The one way the product runs an external program (through the installed services).
CommandResult runCommand(const std::string& path, const std::vector<std::string>& args);

}  // namespace duskwell
