#pragma once
#include <optional>
#include <string>

namespace duskwell {

// One duskwelld per user: an exclusive flock on ~/.duskwell/duskwelld.lock, held for the
// life of the process. The kernel drops it when the process dies, however it dies, so a
// crash never leaves a stale lock. The descriptor is close-on-exec: the watchdog and the
// other children never inherit it.
class InstanceLock {
public:
    struct Busy {
        std::optional<int> pid;  // the holder's process id, as it wrote it into the file
    };

    // Takes the lock (creating the folder and the file), or tells who holds it. An error
    // opening the file (unwritable home) is reported in `error`; the result is then empty
    // and `busy` is not set.
    static std::optional<InstanceLock> acquire(const std::string& path, Busy* busy = nullptr,
                                               std::string* error = nullptr);

    InstanceLock(InstanceLock&& other) noexcept;
    InstanceLock& operator=(InstanceLock&& other) noexcept;
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;
    ~InstanceLock();

    const std::string& path() const { return path_; }

private:
    InstanceLock(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
    int fd_ = -1;
    std::string path_;
};

}  // namespace duskwell
