#include "phone/ntfy_access.h"

#include <cctype>

#include "core/app_config.h"
#include "core/settings_keys.h"
#include "core/settings_store.h"

namespace duskwell::NtfyAccess {
namespace {

bool hostCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' || c == '_';
}

bool validHost(std::string_view host) {
    if (host.empty() || host.size() > 253) return false;
    if (host.front() == '[') {  // IPv6 literal
        if (host.size() < 3 || host.back() != ']') return false;
        for (char c : host.substr(1, host.size() - 2))
            if (!std::isxdigit(static_cast<unsigned char>(c)) && c != ':' && c != '.') return false;
        return true;
    }
    if (host.front() == '.' || host.front() == '-') return false;
    for (char c : host)
        if (!hostCharacter(c)) return false;
    return true;
}

bool validPort(std::string_view port) {
    if (port.empty() || port.size() > 5) return false;
    int n = 0;
    for (char c : port) {
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
        n = n * 10 + (c - '0');
    }
    return n >= 1 && n <= 65535;
}

}  // namespace

std::optional<std::string> normalizedServer(std::string_view text) {
    const auto colon = text.find("://");
    if (colon == std::string_view::npos) return std::nullopt;
    std::string scheme(text.substr(0, colon));
    for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (scheme != "http" && scheme != "https") return std::nullopt;

    std::string_view rest = text.substr(colon + 3);
    while (!rest.empty() && rest.back() == '/') rest.remove_suffix(1);
    // What is left is the authority alone: any path, query, fragment or user is refused.
    if (rest.find_first_of("/?#@ ") != std::string_view::npos) return std::nullopt;

    std::string_view host = rest, port;
    const auto bracket = rest.rfind(']');
    const auto portColon = rest.rfind(':');
    if (portColon != std::string_view::npos && (bracket == std::string_view::npos || portColon > bracket)) {
        host = rest.substr(0, portColon);
        port = rest.substr(portColon + 1);
        if (!validPort(port)) return std::nullopt;
    }
    if (!validHost(host)) return std::nullopt;
    return scheme + "://" + std::string(rest);
}

bool validToken(std::string_view token) {
    if (token.empty() || token.size() > 256) return false;
    for (char c : token) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x21 || u > 0x7e) return false;
    }
    return true;
}

std::string publicServer() {
    std::string url = AppConfig::ntfyServer();
    while (!url.empty() && url.back() == '/') url.pop_back();
    return url;
}

std::string server(const SettingsStore& settings) {
    if (const auto stored = settings.string(SettingsKey::phoneServer)) {
        if (auto url = normalizedServer(*stored)) return *url;
    }
    return publicServer();
}

bool usesPublicServer(const SettingsStore& settings) {
    const auto stored = settings.string(SettingsKey::phoneServer);
    return !stored || !normalizedServer(*stored);
}

std::optional<std::string> token(const SettingsStore& settings) {
    auto stored = settings.string(SettingsKey::phoneToken);
    if (stored && validToken(*stored)) return stored;
    return std::nullopt;
}

std::string authorization(const std::string& token) { return "Bearer " + token; }

}  // namespace duskwell::NtfyAccess
