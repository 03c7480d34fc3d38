#pragma once

namespace duskwell {

// The dashboard of a duskwelld that is already running (`duskwell dashboard`, `duskwelld
// --attach`, or duskwelld started again on a terminal): it watches the service over the
// control socket, draws the same pages from the view state the service sends, and sends
// the keys' actions back. q (or Ctrl-C) closes the dashboard and leaves the service
// running; Q stops the service. On a dumb terminal it writes one line per change instead.
// Blocks until done; answers the exit status (0 closed or service stopped on request, 1 no
// service or the service went away).
int runAttachedDashboard();

}  // namespace duskwell
