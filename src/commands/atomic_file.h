#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace duskwell {

enum class ExistingFile {
    replace,  // the new file gets the given mode
    keep,     // the new file gets the mode, owner and group of the file it replaces
};

// Writes `contents` to a new file beside `path` and renames it over `path`, so that a
// reader sees either the old or the new file, never a part. The temporary file is created
// exclusively under a name of our own, readable by its owner only, and gets its final mode
// only when it is full, so nobody else can read a secret on its way in. A file created in a
// folder that belongs to someone else (a root process in a user's home) goes to that
// folder's owner. Answers the reason on failure, after which `path` is untouched and no
// temporary file is left behind. Never throws.
std::optional<std::string> replaceFile(const std::string& path, std::string_view contents,
                                       unsigned mode, ExistingFile existing);

// The status file: mode 0644. False on any failure.
bool writeFileAtomically(const std::string& path, std::string_view contents);

// Creates `path` and its missing parents. Folders it creates are private (0700) and, like
// files, belong to the owner of the folder they are made in. Answers the reason on failure.
std::optional<std::string> createPrivateDirectories(const std::string& path);

// A name for a temporary file beside `path` that no other writer uses at the same time.
std::string uniqueSiblingName(const std::string& path);

}  // namespace duskwell
