#pragma once
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agents/agent_snapshot.h"
#include "agents/process_table.h"

namespace duskwell {

class SerialQueue;

// Scans the process table and the hook session records for agents, off the main thread.
class AgentMonitor {
public:
    AgentMonitor();
    ~AgentMonitor();

    // Scans on the monitor's queue and calls `completion` on the main queue. Ignored (the
    // completion never runs) while a scan is under way.
    void scan(std::function<void(AgentSnapshot)> completion);
    // The synchronous scan (the monitor's queue only; the CLI calls it directly).
    AgentSnapshot scanNow();

private:
    struct State;
    std::unique_ptr<SerialQueue> queue_;
    std::shared_ptr<State> state_;
    bool scanning_ = false;
};

}  // namespace duskwell
