#include "core/localization.h"

#include <atomic>
#include <mutex>

#include "core/platform.h"
#include "core/services.h"

namespace duskwell {
namespace {
std::once_flag gOnce;
bool gKorean = false;
std::atomic<int> gOverride{-1};  // -1 none, 0 English, 1 Korean
std::atomic<int> gMachineOverride{-1};  // -1 none, else a Machine::Kind

#ifdef __APPLE__
constexpr Machine::Kind kBuiltFor = Machine::Kind::mac;
#else
constexpr Machine::Kind kBuiltFor = Machine::Kind::computer;
#endif

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

}  // namespace

bool Locale::isKoreanFor(const std::vector<std::string>& preferredLanguages) {
    const std::string first = preferredLanguages.empty() ? "en" : preferredLanguages.front();
    return first.rfind("ko", 0) == 0;
}

bool Locale::isKorean() {
    const int o = gOverride.load();
    if (o >= 0) return o == 1;
    std::call_once(gOnce, [] { gKorean = isKoreanFor(services().platform->preferredLanguages()); });
    return gKorean;
}

void Locale::overrideForTesting(std::optional<bool> korean) {
    gOverride.store(korean ? (*korean ? 1 : 0) : -1);
}

std::string T(std::string_view ko, std::string_view en) {
    return std::string(Locale::isKorean() ? ko : en);
}

Machine::Kind Machine::kind() {
    const int o = gMachineOverride.load();
    return o >= 0 ? static_cast<Kind>(o) : kBuiltFor;
}

void Machine::overrideForTesting(std::optional<Kind> kind) {
    gMachineOverride.store(kind ? static_cast<int>(*kind) : -1);
}

std::string TM(std::string_view ko, std::string_view en) {
    const bool mac = Machine::isMac();
    std::string text = T(ko, en);
    if (Locale::isKorean()) {
        replaceAll(text, "{machine:이}", mac ? "Mac이" : "컴퓨터가");
        replaceAll(text, "{machine:을}", mac ? "Mac을" : "컴퓨터를");
        replaceAll(text, "{machine}", mac ? "Mac" : "컴퓨터");
    } else {
        replaceAll(text, "{machine}", mac ? "Mac" : "computer");
    }
    return text;
}

std::string TP(std::string_view koMac, std::string_view enMac, std::string_view koOther,
               std::string_view enOther) {
    return Machine::isMac() ? T(koMac, enMac) : T(koOther, enOther);
}

}  // namespace duskwell
