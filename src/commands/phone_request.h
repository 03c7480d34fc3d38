#pragma once
// Control-socket requests that change the phone channel's server and access token. They
// exist on the socket only (owner-only), never as duskwell:// URLs: a web page must not be
// able to send the alerts, and the secret in their buttons, to a server of its choosing.
//
//   "phone-server <url>"   a self-hosted server;   "phone-server"   the public one again
//   "phone-token <token>"  sets the access token;  "phone-token"    removes it
#include <optional>
#include <string>
#include <string_view>

namespace duskwell::PhoneRequest {

inline constexpr std::string_view serverVerb = "phone-server";
inline constexpr std::string_view tokenVerb = "phone-token";

inline std::string server(const std::string& url) {
    return url.empty() ? std::string(serverVerb) : std::string(serverVerb) + " " + url;
}
inline std::string token(const std::optional<std::string>& token) {
    return token ? std::string(tokenVerb) + " " + *token : std::string(tokenVerb);
}

}  // namespace duskwell::PhoneRequest
