#include "power/system_log.h"

#include <iostream>
#include <mutex>
#include <utility>

namespace duskwell::SystemLog {
namespace {

std::mutex& lock() {
    static std::mutex m;
    return m;
}

Sink& current() {
    static Sink sink;
    return sink;
}

}  // namespace

void write(const std::string& line) {
    std::lock_guard guard(lock());
    if (current()) {
        current()(line);
        return;
    }
    std::clog << line << '\n' << std::flush;
}

SinkScope::SinkScope(Sink sink) {
    std::lock_guard guard(lock());
    previous_ = std::exchange(current(), std::move(sink));
}

SinkScope::~SinkScope() {
    std::lock_guard guard(lock());
    current() = std::move(previous_);
}

}  // namespace duskwell::SystemLog
