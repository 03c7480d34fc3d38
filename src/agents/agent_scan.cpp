#include "agents/agent_scan.h"

#include <algorithm>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>

namespace duskwell {
namespace {

struct Row {
    int count = 0;
    AgentState state = AgentState::idle;
    bool viaHooks = false;
};

enum class Hooks { no, yes };

void add(std::map<AgentKind, Row>& rows, AgentKind kind, AgentState state, Hooks hooks) {
    Row& r = rows[kind];
    r.count += 1;
    r.state = std::max(r.state, state);
    if (hooks == Hooks::yes) r.viaHooks = true;
}

}  // namespace

ScanResult classify(const ProcessTable& table, const std::vector<SessionRecord>& sessions,
                    const ScanMemory& previous, Date now) {
    // pid -> process; the first entry wins if a source ever reports a pid twice.
    std::unordered_map<std::int32_t, const ProcessInfo*> procs;
    procs.reserve(table.processes.size());
    std::unordered_map<std::int32_t, std::vector<std::int32_t>> children;
    for (const auto& p : table.processes) {
        if (!procs.emplace(p.pid, &p).second) continue;
        children[p.ppid].push_back(p.pid);
    }

    std::unordered_set<std::int32_t> hooked;
    for (const auto& s : sessions) hooked.insert(s.pid);

    // Roots: matching processes whose immediate parent is not the same kind of agent.
    std::vector<std::pair<const ProcessInfo*, AgentKind>> roots;
    for (const auto& p : table.processes) {
        if (procs.at(p.pid) != &p) continue;
        const auto kind = AgentKind::match(p.exe, p.args);
        if (!kind) continue;
        const auto parent = procs.find(p.ppid);
        if (parent != procs.end() &&
            AgentKind::match(parent->second->exe, parent->second->args) == kind)
            continue;
        roots.emplace_back(&p, *kind);
    }

    ScanResult result;
    std::map<AgentKind, Row> rows;
    std::vector<const ProcessInfo*> tree;
    std::unordered_set<std::int32_t> seen;
    for (const auto& [root, kind] : roots) {
        // Its hook session stands for it.
        if (hooked.count(root->pid)) continue;

        tree.clear();
        seen.clear();
        tree.push_back(root);
        seen.insert(root->pid);
        for (size_t i = 0; i < tree.size(); ++i) {
            const auto kids = children.find(tree[i]->pid);
            if (kids == children.end()) continue;
            for (const auto child : kids->second)
                if (seen.insert(child).second) tree.push_back(procs.at(child));
        }

        double cpuSum = 0;
        std::int64_t netSum = 0;
        bool busyDescendant = false;
        for (size_t i = 0; i < tree.size(); ++i) {
            cpuSum += tree[i]->cpu;
            netSum += tree[i]->netBytes.value_or(0);
            if (i > 0 && tree[i]->cpu >= kDescendantBusyCpu) busyDescendant = true;
        }
        const bool quiet = cpuSum < kTreeBusyCpu;

        result.memory.lastNet[root->pid] = netSum;
        AgentState netState = AgentState::idle;
        const auto old = previous.lastNet.find(root->pid);
        if (old != previous.lastNet.end() && netSum - old->second >= kNetBusyBytes)
            netState = AgentState::working;

        AgentState state = AgentState::idle;
        if (tree.size() > 1 && busyDescendant) state = AgentState::working;
        else state = quiet ? netState : AgentState(AgentState::working);

        if (kind.isLocalModel() && table.gpu && *table.gpu >= kGpuBusyPercent)
            state = AgentState::working;

        add(rows, kind, state, Hooks::no);
    }

    for (const auto& s : sessions) add(rows, s.kind, s.state, Hooks::yes);

    // Busy-since: kept while a kind stays working, cleared when its row is seen not working.
    result.memory.busySince = previous.busySince;
    auto& items = result.snapshot.items;
    for (const auto& [kind, row] : rows) {
        AgentItem item;
        item.kind = kind;
        item.count = row.count;
        item.state = row.state;
        item.viaHooks = row.viaHooks;
        const std::string key(kind.rawValue());
        if (row.state == AgentState::working) {
            item.since = result.memory.busySince.emplace(key, now).first->second;
        } else {
            result.memory.busySince.erase(key);
        }
        items.push_back(item);
    }

    // Working first, then waiting, then idle; within a state by title, byte by byte (so the
    // lower-case "llama.cpp" and "vLLM" come after every capitalised title).
    std::stable_sort(items.begin(), items.end(), [](const AgentItem& a, const AgentItem& b) {
        if (a.state != b.state) return a.state > b.state;
        return a.kind.title() < b.kind.title();
    });

    result.snapshot.sessions.reserve(sessions.size());
    for (const auto& s : sessions) result.snapshot.sessions.push_back(s.info());
    result.snapshot.gpu = table.gpu;
    return result;
}

}  // namespace duskwell
