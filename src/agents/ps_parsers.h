#pragma once
// Parsers of the macOS tools' output that builds a process table:
//   /bin/ps -Axo pid=,ppid=,pcpu=,comm=
//   /bin/ps -Axo pid=,etime=,args=
//   /usr/bin/nettop -P -L 1 -x -s 0 -J bytes_in,bytes_out
// Portable so that they are tested everywhere; unparsable lines are skipped silently.
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "agents/process_table.h"

namespace duskwell::PsParsers {

// pid, ppid, cpu and executable of each line (args and netBytes left empty). The executable
// is everything after the third run of blanks, inner blanks kept ("/Applications/LM
// Studio.app/Contents/MacOS/LM Studio").
std::vector<ProcessInfo> parseProcesses(std::string_view psOutput);

struct Arguments {
    std::string args;               // the whole command line
    std::optional<double> elapsed;  // seconds since the process started
};

// pid -> elapsed time and whole command line. The elapsed time ("[[dd-]hh:]mm:ss") may be
// missing; then the rest of the line is the command line.
std::unordered_map<std::int32_t, Arguments> parseArguments(std::string_view psOutput);

// ps's elapsed time, "[[dd-]hh:]mm:ss", in seconds.
std::optional<double> parseElapsed(std::string_view text);

// pid -> bytes in + bytes out. The first field is "<name>.<pid>", split at the last dot
// because names hold dots and blanks ("Google Chrome H.1535"); rows end with a comma.
std::unordered_map<std::int32_t, std::int64_t> parseNettop(std::string_view nettopOutput);

// The three outputs joined into one table (a pid missing from the arguments gets empty
// args and no start time; one missing from nettop gets no byte counter). Start times are
// `now` less the elapsed time.
ProcessTable buildTable(std::string_view processes, std::string_view arguments,
                        std::string_view nettop, std::optional<int> gpu, Date now);

}  // namespace duskwell::PsParsers
