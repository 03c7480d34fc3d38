#include "agents/agent_scan.h"

#include <algorithm>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "agents/process_shape.h"

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

// Deep enough for any real process tree; a cycle (a reused pid) ends the walk too.
constexpr int kMaxAncestors = 64;

class Tables {
public:
    explicit Tables(const ProcessTable& table) {
        procs_.reserve(table.processes.size());
        for (const auto& p : table.processes) {
            // The first entry wins if a source ever reports a pid twice.
            if (!procs_.emplace(p.pid, &p).second) continue;
            children_[p.ppid].push_back(p.pid);
            if (auto m = matchProcess(p)) matches_.emplace(p.pid, *m);
        }
    }

    bool owns(const ProcessInfo& p) const { return procs_.at(p.pid) == &p; }
    const ProcessInfo* find(std::int32_t pid) const {
        const auto it = procs_.find(pid);
        return it == procs_.end() ? nullptr : it->second;
    }
    const ProcessMatch* match(std::int32_t pid) const {
        const auto it = matches_.find(pid);
        return it == matches_.end() ? nullptr : &it->second;
    }

    // An agent process is a root unless an ancestor is the same kind of agent; shells,
    // sandboxes and other non-agents in between are looked through, another agent is not.
    bool isRoot(const ProcessInfo& p, AgentKind kind) const {
        std::int32_t pid = p.ppid;
        for (int depth = 0; depth < kMaxAncestors && pid != p.pid; ++depth) {
            const ProcessInfo* up = find(pid);
            if (!up) return true;
            if (const ProcessMatch* m = match(pid)) {
                if (m->kind == kind) return false;
                if (m->role == ProcessRole::agent) return true;
            }
            if (up->ppid == pid) return true;
            pid = up->ppid;
        }
        return true;
    }

    // The process and all its descendants, the process first.
    std::vector<const ProcessInfo*> tree(const ProcessInfo* root) const {
        std::vector<const ProcessInfo*> out{root};
        std::unordered_set<std::int32_t> seen{root->pid};
        for (size_t i = 0; i < out.size(); ++i) {
            const auto kids = children_.find(out[i]->pid);
            if (kids == children_.end()) continue;
            for (const auto child : kids->second)
                if (seen.insert(child).second) out.push_back(procs_.at(child));
        }
        return out;
    }

private:
    std::unordered_map<std::int32_t, const ProcessInfo*> procs_;
    std::unordered_map<std::int32_t, std::vector<std::int32_t>> children_;
    std::unordered_map<std::int32_t, ProcessMatch> matches_;
};

// A tool at work below a waiting session: started after the question (plus a grace for the
// other hooks of the same event), and not one of our own hook runs.
bool toolStartedAfter(const std::vector<const ProcessInfo*>& tree, Date asked) {
    const Date answered = addSeconds(asked, kAnswerGraceSeconds);
    for (size_t i = 1; i < tree.size(); ++i) {
        const ProcessInfo& p = *tree[i];
        if (p.started && *p.started >= answered && !isHookProcess(p)) return true;
    }
    return false;
}

// Any process of the tree but the first started for the current step (at or after the
// step's event), our hook runs aside. One without a known start time counts.
bool stepProcessRuns(const std::vector<const ProcessInfo*>& tree, Date step) {
    const Date from = addSeconds(step, -kAnswerGraceSeconds);
    for (size_t i = 1; i < tree.size(); ++i) {
        const ProcessInfo& p = *tree[i];
        if ((!p.started || *p.started >= from) && !isHookProcess(p)) return true;
    }
    return false;
}

// A command the agent left running after its turn (Codex's background terminals, a build
// sent to the background) that is busy on the CPU. The agent's own processes are no such
// command: Gemini CLI's launcher starts the real agent as its child, whose housekeeping
// spikes would otherwise read as work.
bool busyDescendant(const std::vector<const ProcessInfo*>& tree, const Tables& t, AgentKind kind) {
    for (size_t i = 1; i < tree.size(); ++i) {
        if (tree[i]->cpu < kDescendantBusyCpu || isHookProcess(*tree[i])) continue;
        const ProcessMatch* m = t.match(tree[i]->pid);
        if (m && m->kind == kind && m->role == ProcessRole::agent) continue;
        return true;
    }
    return false;
}

}  // namespace

std::function<bool(std::int32_t)> sessionLiveness(const ProcessTable& table) {
    auto running = std::make_shared<std::unordered_map<std::int32_t, std::optional<AgentKind>>>();
    auto agents = std::make_shared<std::set<AgentKind>>();
    for (const auto& p : table.processes) {
        const auto m = matchProcess(p);
        std::optional<AgentKind> daemonOf;
        if (m && m->role == ProcessRole::daemon) daemonOf = m->kind;
        if (m && m->role == ProcessRole::agent) agents->insert(m->kind);
        running->emplace(p.pid, daemonOf);
    }
    return [running, agents](std::int32_t pid) {
        const auto it = running->find(pid);
        if (it == running->end()) return false;
        return !it->second || agents->count(*it->second) > 0;
    };
}

ScanResult classify(const ProcessTable& table, const std::vector<SessionRecord>& sessions,
                    const ScanMemory& previous, Date now) {
    const Tables t(table);

    struct Root {
        const ProcessInfo* process;
        AgentKind kind;
        std::vector<const ProcessInfo*> tree;
        bool claimed = false;  // a hook session stands for it
    };
    std::vector<Root> roots;
    for (const auto& p : table.processes) {
        if (!t.owns(p)) continue;
        const ProcessMatch* m = t.match(p.pid);
        if (!m || m->role != ProcessRole::agent || !t.isRoot(p, m->kind)) continue;
        roots.push_back({&p, m->kind, t.tree(&p)});
    }

    // Each session stands for the root of its kind whose tree holds its pid; a session
    // whose pid is outside every free such tree (a daemon left by an earlier UI and reused
    // by a new one, or one daemon serving two UIs) takes a root of its kind that no session
    // stands for yet.
    std::vector<Root*> sessionRoot(sessions.size(), nullptr);
    for (size_t i = 0; i < sessions.size(); ++i) {
        for (auto& root : roots) {
            if (root.kind != sessions[i].kind || root.claimed) continue;
            const bool holds = std::any_of(root.tree.begin(), root.tree.end(),
                                           [&](const ProcessInfo* p) { return p->pid == sessions[i].pid; });
            if (!holds) continue;
            sessionRoot[i] = &root;
            root.claimed = true;
            break;
        }
    }
    for (size_t i = 0; i < sessions.size(); ++i) {
        if (sessionRoot[i]) continue;
        for (auto& root : roots) {
            if (root.kind != sessions[i].kind || root.claimed) continue;
            sessionRoot[i] = &root;
            root.claimed = true;
            break;
        }
    }

    ScanResult result;
    std::map<AgentKind, Row> rows;
    for (const auto& root : roots) {
        const std::int32_t pid = root.process->pid;
        if (root.claimed) {
            result.memory.hookedRoots.insert(pid);
            continue;
        }
        const auto& tree = root.tree;
        if (previous.hookedRoots.count(pid)) {
            result.memory.hookedRoots.insert(pid);
            add(rows, root.kind, busyDescendant(tree, t, root.kind) ? AgentState::working : AgentState::idle, Hooks::no);
            continue;
        }

        double cpuSum = 0;
        std::int64_t netSum = 0;
        bool busyChild = false;
        for (size_t i = 0; i < tree.size(); ++i) {
            cpuSum += tree[i]->cpu;
            netSum = addBytes(netSum, tree[i]->netBytes.value_or(0));
            if (i > 0 && tree[i]->cpu >= kDescendantBusyCpu) busyChild = true;
        }
        const bool quiet = cpuSum < kTreeBusyCpu;

        result.memory.lastNet[pid] = netSum;
        AgentState netState = AgentState::idle;
        const auto old = previous.lastNet.find(pid);
        if (old != previous.lastNet.end() && netSum - old->second >= kNetBusyBytes)
            netState = AgentState::working;

        AgentState state = AgentState::idle;
        if (tree.size() > 1 && busyChild) state = AgentState::working;
        else state = quiet ? netState : AgentState(AgentState::working);

        if (root.kind.isLocalModel() && table.gpu && *table.gpu >= kGpuBusyPercent)
            state = AgentState::working;

        add(rows, root.kind, state, Hooks::no);
    }

    result.snapshot.sessions.reserve(sessions.size());
    for (size_t i = 0; i < sessions.size(); ++i) {
        SessionInfo info = sessions[i].info();
        if (info.state == AgentState::working) {
            const ProcessInfo* own = t.find(sessions[i].pid);
            const auto tree = sessionRoot[i] ? sessionRoot[i]->tree
                                             : (own ? t.tree(own) : std::vector<const ProcessInfo*>{});
            double cpu = 0;
            std::int64_t net = 0;
            for (const ProcessInfo* p : tree) {
                cpu += p->cpu;
                net = addBytes(net, p->netBytes.value_or(0));
            }
            const auto old = previous.sessionActivity.find(sessions[i].id);
            const bool busy = cpu >= kTreeBusyCpu || stepProcessRuns(tree, sessions[i].at) ||
                              (old != previous.sessionActivity.end() && net - old->second.net >= kNetBusyBytes);
            const Date active = busy || old == previous.sessionActivity.end() ? now : old->second.active;
            result.memory.sessionActivity[sessions[i].id] = {net, active};
            if (secondsBetween(std::max(active, sessions[i].at), now) >= kStaleWorkingSeconds)
                info.state = AgentState::idle;
        } else {
            // The session's own process (a daemon runs the tools) and the root it stands for.
            std::vector<const ProcessInfo*> trees[2];
            if (const ProcessInfo* own = t.find(sessions[i].pid)) trees[0] = t.tree(own);
            if (sessionRoot[i]) trees[1] = sessionRoot[i]->tree;
            for (const auto& tree : trees) {
                const bool answered = info.state == AgentState::waiting && toolStartedAfter(tree, sessions[i].at);
                if (answered || busyDescendant(tree, t, info.kind)) info.state = AgentState::working;
            }
        }
        add(rows, info.kind, info.state, Hooks::yes);
        result.snapshot.sessions.push_back(std::move(info));
    }

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

    result.snapshot.gpu = table.gpu;
    return result;
}

}  // namespace duskwell
