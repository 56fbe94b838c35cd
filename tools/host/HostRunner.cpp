#include "tools/host/HostRunner.h"

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <memory>
#include <optional>

#include "platform/log/Log.h"
#include "tools/host/ArrivalLog.h"
#include "tools/host/CarrierTcp.h"
#include "tools/host/CarrierUsb.h"
#include "tools/host/CommandSchedule.h"
#include "tools/host/ProbeAnswerer.h"
#include "tools/host/Remuxer.h"
#include "tools/host/Report.h"
#include "tools/host/ServicePublisher.h"

namespace oxelo::host {

namespace {

using Clock = std::chrono::steady_clock;

// The phone's own connect time-out, used for the host's calls.
constexpr double kConnectTimeout = 5.0;

struct Connected {
  std::unique_ptr<Carrier> carrier;
  uint16_t announcedPort = kDefaultHostPort;
  // listen: how the phone finds the host; they go on until the run ends.
  std::unique_ptr<ProbeAnswerer> answerer;
  std::unique_ptr<ServicePublisher> publisher;
};

// listen: answers probes and publishes the service as the options ask, for
// the TCP port `port`. False with `error` set when either cannot start.
bool announce(const HostOptions& options, uint16_t port, Connected& out, std::string& error) {
  if (options.answerProbes) {
    out.answerer = std::make_unique<ProbeAnswerer>(port, options.name);
    std::vector<uint16_t> ports = options.probePorts;
    if (ports.empty()) ports.push_back(port);
    if (!out.answerer->start(ports, error)) return false;
  }
  if (options.publish) {
    out.publisher = std::make_unique<ServicePublisher>();
    if (!out.publisher->start(options.name, port, error)) return false;
  }
  return true;
}

Connected connect(const HostOptions& options, const RunHooks& hooks, std::string& error) {
  Connected out;
  if (options.mode == HostMode::listen) {
    TcpListener listener;
    if (!listener.open(options.address, options.port, error)) return out;
    if (!announce(options, listener.port(), out, error)) return out;
    oxlog("host - listening on {}:{}", options.address, listener.port());
    if (hooks.listening) hooks.listening(listener.port());
    UniqueFd fd = listener.acceptOne(options.wait, error);
    if (!fd.valid()) return out;
    out.announcedPort = listener.port();
    out.carrier = std::make_unique<CarrierTcp>(std::move(fd));
    return out;
  }
  oxlog("host - connecting to {}:{}", options.address, options.port);
  UniqueFd fd = connectTcp(options.address, options.port, kConnectTimeout, error);
  if (!fd.valid()) return out;
  if (options.mode == HostMode::usb) {
    out.carrier = std::make_unique<CarrierUsb>(std::move(fd));
  } else {
    out.carrier = std::make_unique<CarrierTcp>(std::move(fd));
  }
  return out;
}

// Sends what the session has queued; false when a write failed.
bool flush(Carrier& carrier, HostSession& session) {
  for (const auto& packet : session.takeOutgoing()) {
    if (!carrier.send(packet, session)) return false;
  }
  return true;
}

// The exchange on an open connection: greeting, stream, timed commands and
// the end. Times count from the moment the connection came up.
class Exchange {
 public:
  Exchange(const HostOptions& options, Carrier& carrier, HostSession& session)
      : options_(options),
        carrier_(carrier),
        session_(session),
        schedule_(options.commands, options.commandGap),
        start_(Clock::now()) {}

  RunEnd run() {
    std::optional<double> deadline = options_.duration;
    bool ending = false;  // the end command has gone; the phone may close
    for (;;) {
      const double now = elapsed();
      if (session_.readyForCommands()) {
        for (const auto& c : schedule_.takeDue(now)) {
          session_.queueCommand(c.command, c.p1, c.p2);
          commandsSent_.push_back(c);
        }
      }
      if (deadline && now >= *deadline) {
        if (ending || options_.end == EndAction::close) {
          session_.hostEnded();
          return flush(carrier_, session_) ? RunEnd::duration : RunEnd::error;
        }
        const auto command = static_cast<uint32_t>(options_.end);
        session_.queueCommand(command, 0, 0);
        endCommand_ = command;
        ending = true;
        deadline = now + kEndGrace;
      }
      if (!flush(carrier_, session_)) return RunEnd::error;
      std::optional<double> wake = deadline;
      if (auto next = schedule_.nextAt(); next && session_.readyForCommands()) {
        wake = wake ? std::min(*wake, *next) : *next;
      }
      pollfd p{carrier_.fd(), POLLIN, 0};
      const int ready = poll(&p, 1, millisecondsUntil(wake));
      if (ready < 0 && errno != EINTR) {
        session_.addError(std::string("waiting for the phone failed: ") + std::strerror(errno));
        return RunEnd::error;
      }
      if (ready <= 0) continue;
      switch (carrier_.readInto(session_)) {
        case Carrier::ReadResult::more:
          break;
        case Carrier::ReadResult::ended:
          oxlog("host - the phone ended the connection");
          session_.phoneEnded();
          return RunEnd::phone;
        case Carrier::ReadResult::failed:
          return RunEnd::error;
      }
    }
  }

  const std::vector<TimedCommand>& commandsSent() const { return commandsSent_; }
  std::optional<uint32_t> endCommand() const { return endCommand_; }

 private:
  // How long the phone is given to end the connection after an end command.
  static constexpr double kEndGrace = 2.0;

  double elapsed() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

  int millisecondsUntil(std::optional<double> at) const {
    if (!at) return -1;
    const double left = std::ceil((*at - elapsed()) * 1000.0);
    return left < 0 ? 0 : static_cast<int>(std::min(left, double(1 << 30)));
  }

  const HostOptions& options_;
  Carrier& carrier_;
  HostSession& session_;
  CommandSchedule schedule_;
  const Clock::time_point start_;
  std::vector<TimedCommand> commandsSent_;
  std::optional<uint32_t> endCommand_;
};

}  // namespace

RunResult runHost(const HostOptions& options, const RunHooks& hooks) {
  std::string error;
  Connected connected = connect(options, hooks, error);
  HostSession session({options.name, connected.announcedPort, options.settings, options.sendStart});
  ReportInput input;
  input.mode = options.mode;
  input.session = &session;
  RunResult result;
  if (!connected.carrier) {
    session.addError(error);
    result.report = buildReport(input);
    return result;
  }
  oxlog("host - connected ({})", modeName(options.mode));
  std::unique_ptr<Remuxer> recorder;
  if (!options.outputPath.empty()) {
    recorder = std::make_unique<Remuxer>(options.outputPath);
    session.setMediaSink(recorder.get());
  }
  std::unique_ptr<ArrivalLog> arrivals;
  if (!options.arrivalsPath.empty()) {
    arrivals = std::make_unique<ArrivalLog>(options.arrivalsPath, recorder.get());
    if (!arrivals->ok()) session.addError("cannot write the arrivals to " + options.arrivalsPath);
    session.setMediaSink(arrivals.get());
  }
  Exchange exchange(options, *connected.carrier, session);
  input.connected = true;
  input.end = exchange.run();
  input.commandsSent = exchange.commandsSent();
  input.endCommand = exchange.endCommand();
  connected.answerer.reset();  // the goodbyes go before the report
  connected.publisher.reset();
  session.setMediaSink(nullptr);
  arrivals.reset();
  if (recorder) {
    input.recording = recorder->finish();
    oxlog("host - recorded {} video and {} audio frames into {}", input.recording->videoFrames,
          input.recording->audioFrames, input.recording->path);
  }
  result.report = buildReport(input);
  result.exitCode = session.handshakeComplete() && session.errors().empty() &&
                            (!input.recording || input.recording->errors.empty())
                        ? 0
                        : 1;
  return result;
}

}  // namespace oxelo::host
