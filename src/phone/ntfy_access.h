#pragma once
// Which ntfy server the phone channel uses, and the access token it presents there.
#include <optional>
#include <string>
#include <string_view>

namespace duskwell {

class SettingsStore;

namespace NtfyAccess {

// A server address as stored: "http" or "https" (any letter case) then "://", a host name
// (letters, digits, "-", "." and "_") or a bracketed IPv6 address, an optional port 1-65535
// and trailing "/" (dropped). No user, path, query or fragment: alerts go to the server's
// root. Answers the address with the scheme in lower case and no trailing "/", or nothing.
std::optional<std::string> normalizedServer(std::string_view text);

// 1 to 256 visible ASCII characters (no blanks, no control characters): it travels in an
// HTTP header, where anything else could split or corrupt the request.
bool validToken(std::string_view token);

// The public server (no trailing "/").
std::string publicServer();
// The stored server when it is valid, else the public server.
std::string server(const SettingsStore& settings);
// Whether `server(settings)` is the public server (the link then names no server).
bool usesPublicServer(const SettingsStore& settings);
// The stored token when it is valid.
std::optional<std::string> token(const SettingsStore& settings);

// "Bearer <token>": the value of the Authorization header.
std::string authorization(const std::string& token);

}  // namespace NtfyAccess
}  // namespace duskwell
