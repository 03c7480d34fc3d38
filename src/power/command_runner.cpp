#include "power/command_runner.h"

#include "core/services.h"

namespace duskwell {

CommandResult runCommand(const std::string& path, const std::vector<std::string>& args) {
    return services().commands->run(path, args);
}

}  // namespace duskwell
