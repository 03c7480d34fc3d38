"""A second hook beside Duskwell's: appends the agent's event to a log as one JSON line.

The suite waits on these lines (a turn's Stop, Claude's idle reminder, Codex's late
SessionEnd) instead of scraping the screen, and prints them when a step fails.
Usage: eventlog.py <agent> <log file>, with the event's JSON on standard input.
"""

import json
import os
import sys
import time


def main():
    try:
        event = json.loads(sys.stdin.read() or "{}")
    except ValueError:
        event = {}
    keep = ("hook_event_name", "session_id", "notification_type", "reason", "source", "tool_name")
    line = {k: event[k] for k in keep if k in event}
    line.update(t=round(time.time(), 3), agent=sys.argv[1], ppid=os.getppid())
    with open(sys.argv[2], "a") as f:
        f.write(json.dumps(line) + "\n")


if __name__ == "__main__":
    main()
