#pragma once
#include <functional>
#include <memory>

#include "agents/agent_snapshot.h"
#include "agents/process_table.h"

namespace duskwell {

class SerialQueue;

// Scans the process table and the hook session records for agents, off the main thread.
// Lives on the main thread; its scans run on its own serial queue ("duskwell.agent-monitor").
class AgentMonitor {
public:
    AgentMonitor();
    ~AgentMonitor();
    AgentMonitor(const AgentMonitor&) = delete;
    AgentMonitor& operator=(const AgentMonitor&) = delete;

    // Scans on the monitor's queue and calls `completion` on the main queue. Ignored (the
    // completion never runs) while a scan is under way. Call on the main thread. A scan that
    // outlives the monitor still finishes and still calls its completion.
    void scan(std::function<void(AgentSnapshot)> completion);
    // The synchronous scan: samples services().processes, reads the session records and
    // classifies. Runs on the monitor's queue (or, with no scan under way, on the caller).
    AgentSnapshot scanNow();
    // True from `scan` until just before its completion runs (main thread).
    bool scanning() const;

private:
    // Shared with the scan under way, so that the monitor may die before it finishes.
    struct State;
    std::unique_ptr<SerialQueue> queue_;
    std::shared_ptr<State> state_;
};

}  // namespace duskwell
