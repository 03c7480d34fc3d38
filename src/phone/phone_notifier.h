#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/observable.h"

namespace duskwell {

// Push alerts through an ntfy topic, and commands read back from a private control topic.
class PhoneNotifier {
public:
    class Command {
    public:
        enum Value : int { extend60, stop, sleep, start, status };
        constexpr Command(Value v) : value_(v) {}  // NOLINT: implicit by design
        constexpr Value value() const { return value_; }
        static std::optional<Command> fromRawValue(std::string_view raw);
        std::string_view rawValue() const;
        constexpr bool operator==(const Command&) const = default;

    private:
        Value value_;
    };

    PhoneNotifier();
    ~PhoneNotifier();

    bool enabled() const { return enabled_; }
    void setEnabled(bool on);
    const std::optional<std::string>& lastResult() const { return lastResult_; }
    std::string topic() const;
    std::string controlTopic() const;
    std::string subscribeURL() const;
    void resetTopics();

    void send(const std::string& title, const std::string& message,
              const std::vector<std::string>& tags, int priority = 3,
              bool withActions = false, bool force = false);
    // Fetches new control messages; `handler` runs on the main thread once per command.
    void poll(std::function<void(Command)> handler);

    // Change announcements (enabled, lastResult, topics), on the main thread.
    Observable& changes() { return changes_; }

private:
    friend struct PhoneNotifierTestAccess;
    static std::string random(int length);
    std::string server() const;

    Observable changes_;
    bool enabled_ = false;
    std::optional<std::string> lastResult_;
    std::int64_t startedAt_ = 0;
    std::optional<std::string> lastID_;
    std::vector<std::string> seenIDs_;
    bool polling_ = false;
    std::shared_ptr<int> life_ = std::make_shared<int>(0);
};

}  // namespace duskwell
