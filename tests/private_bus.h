#pragma once
// A dbus-daemon of the test's own, for tests that need D-Bus without touching the machine's
// buses, and the stand-in services' interpreter.
#include <string>

#include "daemon_fixture.h"

namespace duskwell::itest {

inline const std::string kDbusDaemon = "/usr/bin/dbus-daemon";
// The system's python3 (the one with python3-dbus and gi), not whichever is first on PATH.
inline const std::string kSystemPython = "/usr/bin/python3";

// Whether private buses and python3-dbus stand-ins can run here.
inline bool busToolsPresent() {
    return fs::exists(kDbusDaemon) && run({kSystemPython, "-c", "import dbus, gi"}, "/tmp").status == 0;
}

// Killed with its owner; its address is the first line it prints.
class PrivateBus {
public:
    PrivateBus(const std::string& dir, const std::string& name)
        : file_(dir + "/" + name + ".address"),
          process_({kDbusDaemon, "--session", "--nofork", "--print-address=1"}, Launch{file_, dir + "/" + name + ".err"}) {
        waitFor([&] { return testing::readFile(file_).value_or("").find('\n') != std::string::npos; }, 10);
        const std::string text = testing::readFile(file_).value_or("");
        address_ = text.substr(0, text.find('\n'));
    }
    const std::string& address() const { return address_; }

private:
    std::string file_;
    Process process_;
    std::string address_;
};

}  // namespace duskwell::itest
