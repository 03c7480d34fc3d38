#!/bin/sh
# A second hook beside Duskwell's: one line per event, "<unix time> <agent> <event JSON>".
# The suite waits on these lines instead of scraping the screen. A shell script, not Python:
# it lives a few milliseconds in the agent's tree, where a slower hook could pass for work.
# Usage: eventlog.sh <agent> <log file>, with the event's JSON on standard input.
t=$(date +%s.%N)
printf '%s %s %s\n' "$t" "$1" "$(tr -d '\n')" >> "$2"
