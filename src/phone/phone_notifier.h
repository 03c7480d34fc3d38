#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/observable.h"

namespace duskwell {

class SettingsStore;
struct HttpRequest;

// Push alerts through an ntfy topic, and commands read back from a private control topic.
// Everything here runs on the main thread; requests complete on the HTTP client's thread
// and only their parsed result is posted back to the main queue.
class PhoneNotifier {
public:
    class Command {
    public:
        enum Value : int { extend60, stop, sleep, start, status };
        constexpr Command(Value v) : value_(v) {}  // NOLINT: implicit by design
        constexpr Value value() const { return value_; }
        // Exactly the five lower-case words; nothing for anything else.
        static std::optional<Command> fromRawValue(std::string_view raw);
        std::string_view rawValue() const;
        constexpr bool operator==(const Command&) const = default;

    private:
        Value value_;
    };

    // Characters of generated topics and secrets: no "0", "1" or "l", so they survive
    // being read aloud or retyped.
    static constexpr std::string_view alphabet = "abcdefghijkmnopqrstuvwxyz23456789";
    static constexpr std::size_t maxSeenIDs = 200;
    static constexpr double requestTimeout = 10;

    PhoneNotifier();
    ~PhoneNotifier();
    PhoneNotifier(const PhoneNotifier&) = delete;
    PhoneNotifier& operator=(const PhoneNotifier&) = delete;

    bool enabled() const { return enabled_; }
    void setEnabled(bool on);
    const std::optional<std::string>& lastResult() const { return lastResult_; }
    // Cleared before a test alert, so that a caller can tell its outcome from an older one.
    void setLastResult(std::optional<std::string> result);
    std::string topic() const;
    std::string controlTopic() const;
    // "<website>/phone/#<topic>.<control>.<secret>", then "@<server>" when the server is not
    // the public one: the fragment never reaches the website.
    std::string subscribeURL() const;
    // The same link built from the identifiers stored in `settings` (the terminal command
    // reads it without creating a notifier).
    static std::string subscribeURL(const SettingsStore& settings);
    void resetTopics();

    // The ntfy server: empty text returns to the public server. False, with nothing
    // changed, when the text is not an http(s) server address (NtfyAccess::normalizedServer).
    // A new server starts the command cursor afresh: ids of the old one mean nothing there.
    bool setServer(std::string_view url);
    std::string serverURL() const { return server(); }
    // The access token; nothing removes it. False, with nothing changed, for a token an
    // HTTP header cannot carry. The token is kept in the settings only: never shown.
    bool setToken(const std::optional<std::string>& token);
    bool hasToken() const;

    // Publishes one alert; returns at once, the outcome arrives later in `lastResult`.
    void send(const std::string& title, const std::string& message,
              const std::vector<std::string>& tags, int priority = 3,
              bool withActions = false, bool force = false);
    // Fetches new control messages; `handler` runs on the main thread once per command.
    void poll(std::function<void(Command)> handler);

    // Change announcements (enabled, lastResult, topics), on the main thread, made just
    // before the change.
    Observable& changes() { return changes_; }

    // The alert's JSON body (compact). Exposed for the tests and the documentation.
    std::string alertBody(const std::string& title, const std::string& message,
                          const std::vector<std::string>& tags, int priority,
                          bool withActions) const;

    // One parsed line of a poll answer: the message id and its command when the message
    // carried the secret and a known word.
    using PolledMessage = std::pair<std::string, std::optional<Command>>;
    // Parses a poll answer (one JSON object per line) against `secret`. Thread-free.
    static std::vector<PolledMessage> parsePollAnswer(std::string_view body, const std::string& secret);
    // Splits "<secret> <word>" and answers the command when the secret matches exactly.
    static std::optional<Command> authenticate(std::string_view text, const std::string& secret);

private:
    friend struct PhoneNotifierTestAccess;
    // `length` characters from `alphabet`, each from 8 bytes of the OS's cryptographic source.
    static std::string random(int length);
    std::string server() const;
    // Adds the access token, when one is set, as "Authorization: Bearer <token>".
    void authorize(HttpRequest& request) const;
    void finishPoll(bool success, const std::vector<PolledMessage>& messages,
                    const std::function<void(Command)>& handler);

    Observable changes_;
    bool enabled_ = false;
    std::optional<std::string> lastResult_;
    std::int64_t startedAt_ = 0;
    std::optional<std::string> lastID_;
    std::vector<std::string> seenIDs_;
    bool polling_ = false;
    double timeout_ = requestTimeout;  // tests shorten it
    std::shared_ptr<int> life_ = std::make_shared<int>(0);
};

}  // namespace duskwell
