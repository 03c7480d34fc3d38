#pragma once
// The real platform services for the terminal command's process.
#include <memory>
#include <string>

namespace duskwell::cli {

std::string version();

// Installs the real services (settings, clock, commands, power, processes) for its lifetime.
class RealServices {
public:
    RealServices();
    ~RealServices();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace duskwell::cli
