#include "commands/atomic_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace duskwell {
namespace {

namespace fs = std::filesystem;

std::string reason(int error) { return std::strerror(error); }

struct Owner {
    uid_t uid;
    gid_t gid;
};

// Root working in someone else's folder hands what it creates to that folder's owner, so
// that `sudo duskwell connect` does not leave the user with files they cannot change.
std::optional<Owner> inheritedOwner(const std::string& folder) {
    if (geteuid() != 0) return std::nullopt;
    struct stat st {};
    if (::stat(folder.empty() ? "." : folder.c_str(), &st) != 0 || st.st_uid == 0) return std::nullopt;
    return Owner{st.st_uid, st.st_gid};
}

class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() { close(); }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    int close() {
        const int rc = fd_ >= 0 ? ::close(fd_) : 0;
        fd_ = -1;
        return rc;
    }

private:
    int fd_;
};

}  // namespace

std::string uniqueSiblingName(const std::string& path) {
    static thread_local std::mt19937_64 generator{std::random_device{}() ^ static_cast<unsigned>(getpid())};
    const fs::path target(path);
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, "%d-%016llx", static_cast<int>(getpid()),
                  static_cast<unsigned long long>(generator()));
    return (target.parent_path() / ("." + target.filename().string() + ".tmp-" + suffix)).string();
}

std::optional<std::string> replaceFile(const std::string& path, std::string_view contents,
                                       unsigned mode, ExistingFile existing) {
    std::optional<Owner> owner = inheritedOwner(fs::path(path).parent_path().string());
    struct stat old {};
    if (existing == ExistingFile::keep && ::stat(path.c_str(), &old) == 0) {
        mode = old.st_mode & 07777;
        owner = Owner{old.st_uid, old.st_gid};
    }

    std::string temp;
    int fd = -1;
    for (int attempt = 0; attempt < 8 && fd < 0; ++attempt) {
        temp = uniqueSiblingName(path);
        // O_EXCL|O_NOFOLLOW: never through a name someone planted; 0600 from the first byte.
        fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno != EEXIST) return reason(errno);
    }
    if (fd < 0) return reason(EEXIST);
    Fd file(fd);
    const auto fail = [&](int error) -> std::optional<std::string> {
        file.close();
        ::unlink(temp.c_str());
        return reason(error);
    };

    for (std::size_t done = 0; done < contents.size();) {
        const ssize_t n = ::write(file.get(), contents.data() + done, contents.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return fail(n < 0 ? errno : EIO);
        done += static_cast<std::size_t>(n);
    }
    if (owner && (owner->uid != geteuid() || owner->gid != getegid()) &&
        ::fchown(file.get(), owner->uid, owner->gid) != 0 && geteuid() == 0)
        return fail(errno);
    // After the chown, which clears set-id bits.
    if (::fchmod(file.get(), static_cast<mode_t>(mode & 07777)) != 0) return fail(errno);
    if (file.close() != 0) return fail(errno);
    if (::rename(temp.c_str(), path.c_str()) != 0) return fail(errno);
    return std::nullopt;
}

bool writeFileAtomically(const std::string& path, std::string_view contents) {
    return !replaceFile(path, contents, 0644, ExistingFile::replace).has_value();
}

std::optional<std::string> createPrivateDirectories(const std::string& path) {
    if (path.empty()) return std::nullopt;
    std::error_code ec;
    const fs::path target = fs::path(path).lexically_normal();
    if (fs::is_directory(target, ec)) return std::nullopt;
    fs::path parent = target.parent_path();
    if (target.has_relative_path() && parent != target) {
        if (auto error = createPrivateDirectories(parent.string())) return error;
    }
    if (::mkdir(target.c_str(), 0700) != 0) {
        if (errno == EEXIST && fs::is_directory(target, ec)) return std::nullopt;
        return reason(errno) + ": " + target.string();
    }
    if (const auto owner = inheritedOwner(parent.string())) {
        if (::chown(target.c_str(), owner->uid, owner->gid) != 0) return reason(errno);
    }
    return std::nullopt;
}

}  // namespace duskwell
