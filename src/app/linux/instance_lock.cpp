#include "instance_lock.h"

#include "commands/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

namespace duskwell {
namespace {

std::optional<int> readPid(int fd) {
    char buf[32] = {};
    const ssize_t n = pread(fd, buf, sizeof buf - 1, 0);
    if (n <= 0) return std::nullopt;
    try {
        const int pid = std::stoi(std::string(buf, static_cast<std::size_t>(n)));
        if (pid > 0) return pid;
    } catch (...) {
    }
    return std::nullopt;
}

}  // namespace

std::optional<InstanceLock> InstanceLock::acquire(const std::string& path, Busy* busy, std::string* error) {
    createPrivateDirectories(std::filesystem::path(path).parent_path().string());
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (error) *error = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int err = errno;
        if (err == EWOULDBLOCK) {
            if (busy) busy->pid = readPid(fd);
        } else if (error) {
            *error = path + ": " + std::strerror(err);
        }
        ::close(fd);
        return std::nullopt;
    }
    // Our pid, for the message a second start prints.
    const std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(fd, 0) == 0) {
        [[maybe_unused]] const ssize_t n = ::pwrite(fd, pid.data(), pid.size(), 0);
    }
    return InstanceLock(fd, path);
}

InstanceLock::InstanceLock(InstanceLock&& other) noexcept : fd_(other.fd_), path_(std::move(other.path_)) {
    other.fd_ = -1;
}

InstanceLock& InstanceLock::operator=(InstanceLock&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = other.fd_;
        path_ = std::move(other.path_);
        other.fd_ = -1;
    }
    return *this;
}

InstanceLock::~InstanceLock() {
    // Closing the descriptor releases the lock; the file stays (removing it would race
    // with a newcomer that already opened it).
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace duskwell
