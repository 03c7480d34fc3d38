#include "commands/status_document.h"

#include <cmath>
#include <cstdio>
#include <type_traits>

#include <nlohmann/json.hpp>

#include "core/strict_json.h"

namespace duskwell::StatusDocument {
namespace {

// Days since 1970-01-01 to a civil date (proleptic Gregorian), so that no time-zone
// database or thread-unsafe gmtime is involved.
void civilFromDays(long long z, long long& y, unsigned& m, unsigned& d) {
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const auto doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<long long>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    if (m <= 2) ++y;
}

template <class V>
std::optional<V> field(const nlohmann::json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end()) return std::nullopt;
    if constexpr (std::is_same_v<V, bool>) {
        if (it->is_boolean()) return it->get<bool>();
    } else if constexpr (std::is_same_v<V, std::string>) {
        if (it->is_string()) return it->get<std::string>();
    } else {
        if (it->is_number_integer()) return it->get<std::int64_t>();
        // A float is truncated, like the writer does; one out of range is absent.
        if (it->is_number_float()) {
            const double v = it->get<double>();
            if (std::isfinite(v) && std::fabs(v) < 9.0e18) return static_cast<std::int64_t>(v);
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<StatusReading> read(std::string_view text) {
    const StrictJson parsed = parseStrictJson(text);
    if (!parsed.ok() || !parsed.value.is_object()) return std::nullopt;
    const nlohmann::json& doc = parsed.value;
    StatusReading r;
    r.active = field<bool>(doc, "active").value_or(false);
    r.status = field<std::string>(doc, "status").value_or("");
    r.mode = field<std::string>(doc, "mode");
    r.endsAt = field<std::string>(doc, "endsAt");
    r.sleepsInSeconds = field<std::int64_t>(doc, "sleepsInSeconds");
    r.written = field<std::string>(doc, "written");
    r.held = field<bool>(doc, "held");
    if (const auto reasons = doc.find("heldReasons"); reasons != doc.end() && reasons->is_array())
        for (const auto& reason : *reasons)
            if (reason.is_string()) r.heldReasons.push_back(reason.get<std::string>());
    if (const auto agents = doc.find("agents"); agents != doc.end() && agents->is_array()) {
        for (const auto& a : *agents) {
            if (!a.is_object()) continue;
            StatusReading::Agent agent;
            agent.name = field<std::string>(a, "name").value_or("?");
            agent.count = field<std::int64_t>(a, "count").value_or(0);
            agent.state = field<std::string>(a, "state").value_or("?");
            r.agents.push_back(std::move(agent));
        }
    }
    r.pretty = doc.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    return r;
}

std::string iso8601UTC(Date date) {
    const auto secs = static_cast<long long>(std::floor(unixSeconds(date)));
    long long days = secs / 86400;
    long long rem = secs % 86400;
    if (rem < 0) {
        rem += 86400;
        --days;
    }
    long long y = 0;
    unsigned m = 0, d = 0;
    civilFromDays(days, y, m, d);
    char buf[40];
    std::snprintf(buf, sizeof buf, "%04lld-%02u-%02uT%02lld:%02lld:%02lldZ", y, m, d, rem / 3600,
                  (rem % 3600) / 60, rem % 60);
    return buf;
}

std::string json(const StatusFacts& facts) {
    nlohmann::json doc = nlohmann::json::object();
    doc["active"] = facts.active;
    doc["status"] = facts.status;
    doc["version"] = facts.version;
    if (facts.active) {
        if (facts.mode) doc["mode"] = std::string(facts.mode->name());
        if (facts.endsAt) doc["endsAt"] = iso8601UTC(*facts.endsAt);
        if (facts.sleepsInSeconds) doc["sleepsInSeconds"] = static_cast<long long>(std::trunc(*facts.sleepsInSeconds));
        if (facts.held) doc["held"] = *facts.held;
        if (facts.held == false) doc["heldReasons"] = facts.heldReasons;
    }
    nlohmann::json agents = nlohmann::json::array();
    for (const auto& a : facts.agents)
        agents.push_back({{"name", a.name}, {"count", a.count}, {"state", a.state}});
    doc["agents"] = std::move(agents);
    if (facts.written) doc["written"] = iso8601UTC(*facts.written);
    return doc.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace duskwell::StatusDocument
