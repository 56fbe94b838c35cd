#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>

#include "tools/host/HostOptions.h"

namespace oxelo::host {

// Optional observers of a run, for tests and the demo.
struct RunHooks {
  // listen: the socket is listening on this port (useful with port 0).
  std::function<void(uint16_t port)> listening;
};

struct RunResult {
  int exitCode = 1;  // 0: the exchange was complete and no error was seen
  nlohmann::json report;
};

// One run of the host: makes the connection the options ask for (listen:
// answering probes and publishing the service as asked, from the moment it
// listens until the run ends, with the goodbyes before the report), runs the
// greeting, then reads and checks the stream, sends the timed commands, and
// goes on until the phone ends the connection or the duration runs out (with
// the end command, if asked, and up to 2 s for the phone to end it then). Blocks the calling
// thread; uses real time, which is fine for a tool, while the report stays free of times.
RunResult runHost(const HostOptions& options, const RunHooks& hooks = {});

}  // namespace oxelo::host
