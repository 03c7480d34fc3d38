// expect: error: unused function 'joinArguments'
// A helper only the Linux branch calls: on the Mac it is unused, an error under -Werror.
#include <string>
#include <vector>

namespace {
std::string joinArguments(const std::vector<std::string>& args) {
    std::string out;
    for (const auto& a : args) out += a + " ";
    return out;
}
}  // namespace

std::string commandLine(int pid) {
#ifdef __linux__
    return joinArguments({"/proc", std::to_string(pid)});
#else
    return std::to_string(pid);
#endif
}
