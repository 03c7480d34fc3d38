#pragma once
// The dashboard's entry line for the self-hosted ntfy server and its access token: first
// the server (Enter on an empty line: the public server), then the token (Enter on an
// empty line keeps it, "-" removes it). The token is drawn as dots, never as typed.
#include <functional>
#include <optional>
#include <string>

#include "dashboard_keys.h"

namespace duskwell {

class PhoneServerPrompt {
public:
    // `server`: the address in use, offered for editing; `publicServer`: what an empty line means.
    PhoneServerPrompt(std::string server, std::string publicServer);

    enum class Result { editing, cancelled, done };
    // Feeds one key: printable characters type, Backspace erases, Enter moves on (or
    // finishes), Esc cancels. An address that is not a server keeps the first step open
    // with an explanation.
    Result feed(const Key& key);

    // The line to show in place of the key map.
    std::string line() const;

    // Once `done`: the server ("" for the public one) and the token change (nothing: keep;
    // inner nothing: remove).
    const std::string& server() const { return server_; }
    const std::optional<std::optional<std::string>>& tokenChange() const { return tokenChange_; }

private:
    enum class Step { server, token };
    Step step_ = Step::server;
    std::string text_;
    std::string server_;
    std::string publicServer_;
    std::optional<std::optional<std::string>> tokenChange_;
    std::optional<std::string> error_;
};

// Where a finished entry goes: the in-process dashboard applies it to the controller, an
// attached one sends it to the service. Called on the dashboard's thread.
struct PhoneServerAnswer {
    std::function<void(const std::string& server)> server;
    std::function<void(const std::optional<std::string>& token)> token;  // nothing: remove it
};

// Feeds `key` to the open `prompt`; once the entry is done it goes to `answer` (the server,
// then the token when it changed), and a done or cancelled prompt closes.
void feedPhoneServerPrompt(std::optional<PhoneServerPrompt>& prompt, const Key& key,
                           const PhoneServerAnswer& answer);

}  // namespace duskwell
