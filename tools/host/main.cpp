#include <iostream>
#include <string>
#include <vector>

#include "tools/host/HostOptions.h"
#include "tools/host/HostRunner.h"
#include "tools/host/Report.h"

using namespace oxelo::host;

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  const ParsedCommandLine parsed = parseHostOptions(args, machineHostName());
  if (parsed.kind == ParsedCommandLine::Kind::help) {
    std::cout << parsed.text;
    return 0;
  }
  if (parsed.kind == ParsedCommandLine::Kind::error) {
    std::cerr << "oxelo-host: " << parsed.text << "\n";
    return 2;
  }
  const HostOptions& options = parsed.options;
  const RunResult result = runHost(options);
  if (options.reportPath.empty()) {
    std::cout << result.report.dump(2) << "\n";
    return result.exitCode;
  }
  std::string error;
  if (!writeReportFile(options.reportPath, result.report, error)) {
    std::cerr << "oxelo-host: " << error << "\n";
    return 1;
  }
  return result.exitCode;
}
