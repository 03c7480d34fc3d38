#pragma once
#include "power/command_runner.h"

namespace duskwell {

// posix_spawn with one pipe for stdout and stderr, read to the end, then waited for.
class PosixCommandRunner final : public CommandRunner {
public:
    CommandResult run(const std::string& path, const std::vector<std::string>& args) override;
    std::unique_ptr<ChildProcess> spawnDetached(const std::string& path,
                                                const std::vector<std::string>& args) override;
};

}  // namespace duskwell
