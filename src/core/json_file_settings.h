#pragma once
#include <string>

#include "core/in_memory_settings.h"

namespace duskwell {

// The Linux settings store: one JSON object in a file (~/.duskwell/settings.json). Read at
// construction; every change rewrites the whole file atomically (temporary file, then
// rename), readable by the owner only. A file that is not a JSON object is moved aside to
// "<file>.corrupt" and the defaults apply. Members of other types (arrays, nested objects,
// fractions) are kept and written back untouched. A file that cannot be written leaves the
// values in memory. Main thread only.
class JsonFileSettings final : public InMemorySettings {
public:
    explicit JsonFileSettings(std::string path);
    ~JsonFileSettings() override;

    const std::string& path() const { return path_; }
    // Whether the last write reached the disk.
    bool lastWriteSucceeded() const { return lastWriteOk_; }

protected:
    void changed() override;

private:
    void load();
    std::string path_;
    std::string untouched_;  // serialised object of members we do not interpret
    bool lastWriteOk_ = true;
};

}  // namespace duskwell
