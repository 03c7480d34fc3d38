#include "agents/agent_monitor.h"

#include "agents/agent_scan.h"
#include "agents/session_records.h"
#include "core/clock.h"
#include "core/dispatcher.h"
#include "core/services.h"

namespace duskwell {

struct AgentMonitor::State {
    ScanMemory memory;      // touched only by the scan (the queue, or scanNow's caller)
    bool scanning = false;  // main thread only

    AgentSnapshot scanNow() {
        const ProcessTable table = services().processes->sample();
        const auto sessions = readSessions(sessionLiveness(table));
        ScanResult r = classify(table, sessions, memory, services().clock->now());
        memory = std::move(r.memory);
        return std::move(r.snapshot);
    }
};

AgentMonitor::AgentMonitor()
    : queue_(services().dispatcher->makeSerialQueue("duskwell.agent-monitor")),
      state_(std::make_shared<State>()) {}

AgentMonitor::~AgentMonitor() = default;

bool AgentMonitor::scanning() const { return state_->scanning; }

void AgentMonitor::scan(std::function<void(AgentSnapshot)> completion) {
    if (state_->scanning) return;
    state_->scanning = true;
    queue_->post([state = state_, completion = std::move(completion)]() mutable {
        AgentSnapshot snapshot = state->scanNow();
        services().dispatcher->post(
            [state, completion = std::move(completion), snapshot = std::move(snapshot)]() mutable {
                state->scanning = false;
                if (completion) completion(std::move(snapshot));
            });
    });
}

AgentSnapshot AgentMonitor::scanNow() { return state_->scanNow(); }

}  // namespace duskwell
