#pragma once
#include <string>
#include <string_view>

namespace duskwell {

// Writes `contents` to a new file beside `path` and renames it over `path`, so that a
// reader sees either the old or the new file, never a part. False on any failure, after
// which `path` is untouched and no temporary file is left behind. Never throws.
bool writeFileAtomically(const std::string& path, std::string_view contents);

}  // namespace duskwell
