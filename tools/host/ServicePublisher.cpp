#include "tools/host/ServicePublisher.h"

#include <chrono>

#include "platform/log/Log.h"

namespace oxelo::host {

namespace {
constexpr const char* kServiceType = "_tarnvik_oxelo._tcp";
// How long start() waits for the daemon to establish the service: its
// probing for the name takes about a second.
constexpr auto kEstablishWait = std::chrono::seconds(5);
}  // namespace

ServicePublisher::ServicePublisher(std::string program) : program_(std::move(program)) {}

void ServicePublisher::onLine(std::string_view line, bool error) {
  if (line.empty()) return;
  oxlog("host - {}: {}", program_, line);
  std::lock_guard lock(lock_);
  if (line.starts_with("Established under name")) established_ = true;
  if (error) lastError_ = line;
  changed_.notify_all();
}

bool ServicePublisher::start(const std::string& name, uint16_t port, std::string& error) {
  const std::vector<std::string> argv = {program_, "-s", name, kServiceType, std::to_string(port)};
  auto handler = [this](std::string_view line, bool isError) { onLine(line, isError); };
  std::string startError;
  if (!child_.start(argv, /*pipeInput=*/false, handler, startError)) {
    error = "cannot publish the service: " + startError + " (avahi-utils provides it)";
    return false;
  }
  const auto deadline = std::chrono::steady_clock::now() + kEstablishWait;
  std::unique_lock lock(lock_);
  while (!established_ && std::chrono::steady_clock::now() < deadline) {
    changed_.wait_for(lock, std::chrono::milliseconds(50));
    if (established_) break;
    lock.unlock();  // running() waits for the reader thread, which takes the lock
    const bool running = child_.running();
    lock.lock();
    if (!running) {
      error = "cannot publish '" + name + "': " + program_ + " ended (" +
              describeExit(child_.wait()) + ")" + (lastError_.empty() ? "" : ": " + lastError_);
      return false;
    }
  }
  published_ = true;
  if (established_) {
    oxlog("host - published '{}' as {} on port {}", name, kServiceType, port);
    return true;
  }
  oxlog("host - the daemon has not yet established '{}'; publishing goes on", name);
  return true;
}

ServicePublisher::~ServicePublisher() {
  if (!child_.started()) return;
  child_.terminate();
  if (published_) oxlog("host - service withdrawn");
}

}  // namespace oxelo::host
