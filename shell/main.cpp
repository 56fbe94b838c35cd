#include <signal.h>

#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "discovery/AvahiBrowser.h"
#include "discovery/MainViewController.h"
#include "encoding/HardwareDecodeSupport.h"
#include "encoding/HardwareEncoderFactory.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebufferCache.h"
#include "platform/audio/AudioBackend.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/device/AppLifecycle.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"
#include "shell/AppDelegate.h"
#include "shell/CameraCommands.h"
#include "shell/CommandLine.h"
#include "shell/HeadlessLiveScreen.h"
#include "shell/HeadlessMainScreen.h"
#include "shell/qt/QtApplication.h"

using namespace oxelo;

// libx265 3.5 keeps a few blocks of every encoder it closes (its parameter
// copies and the SAO state), and a new bit rate reopens the HEVC encoder;
// the window's fonts leave fontconfig's configuration and caches allocated
// until the end (Qt never calls FcFini). They are not ours to free.
// LeakSanitizer reads this list in the sanitizer builds that run this
// program; other builds ignore the function.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libx265.so\nleak:libfontconfig.so\n";
}

namespace {

// Signals are taken by one thread with sigwait and turned into main-queue
// tasks, so that no handler runs inside arbitrary code.
// `stop` runs on the main queue.
void startSignalThread(std::shared_ptr<Queue> main, sigset_t set, std::function<void()> stop) {
  std::thread([main, set, stop] {
    for (;;) {
      int sig = 0;
      if (sigwait(&set, &sig) != 0) continue;
      if (AppLifecycle::handleSignal(sig)) continue;  // SIGUSR1, SIGUSR2
      if (sig == SIGINT || sig == SIGTERM) {
        main->post([stop, sig] {
          oxlog("MAIN - stopping on signal {}", sig);
          stop();
        });
        return;
      }
    }
  }).detach();
}

}  // namespace

int main(int argc, char** argv) {
  std::string error;
  auto cl = parseCommandLine(std::vector<std::string>(argv + 1, argv + argc), error);
  if (!cl) {
    std::fprintf(stderr, "oxelo: %s\n", error.c_str());
    return 2;
  }
  if (cl->help) {
    std::fputs(usageText().c_str(), stdout);
    return 0;
  }
  if (cl->version) {
    std::printf("oxelo %s\n", shortVersionString());
    return 0;
  }
  if (cl->listCameras || cl->catalogue) return runCameraCommand(*cl, std::cout, std::cerr);

  // Block the stop signals in every thread; the signal thread takes them.
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGUSR1);
  sigaddset(&set, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);

  auto defaults = std::make_shared<UserDefaults>(
      cl->configDir ? std::filesystem::path(*cl->configDir) : UserDefaults::configDirectory());
  UserDefaults::setStandard(defaults);
  if (int status = startCameras(cl->camera, std::cerr); status != 0) return status;
  std::string audioError;
  auto audio = AudioBackend::open(cl->audio, audioError);
  if (!audio) {
    std::fprintf(stderr, "oxelo: %s\n", audioError.c_str());
    return 2;
  }
  AudioBackend::setCurrent(audio);
  // Idle framebuffers go when the system runs short of memory.
  GPUImageContext::sharedFramebufferCache().purgeOnMemoryPressure();
  if (!cl->headless) {
    WindowStart start;
    start.defaults = defaults;
    start.encoders = std::make_shared<HardwareEncoderFactory>();
    start.hevcDecodeSupported = isHevcHardwareDecodeSupported();
    start.connectAddress = cl->connectAddress;
    start.instance = cl->instance;
    start.duration = cl->duration;
    start.startSignals = [set](std::shared_ptr<Queue> main, std::function<void()> stop) {
      startSignalThread(std::move(main), set, std::move(stop));
    };
    return runWindow(argc, argv, start);
  }
  HeadlessLiveScreen::Sources sources;
  sources.encoders = std::make_shared<HardwareEncoderFactory>();
  sources.hevcDecodeSupported = isHevcHardwareDecodeSupported();
  auto main = MainQueue::get();
  if (cl->exitWhenEnded) {
    sources.hostEnded = [main] {
      oxlog("MAIN - the host ended the stream: exiting");
      main->stop();
    };
  }
  auto presenter = std::make_shared<HeadlessLivePresenter>(sources);

  startSignalThread(main, set, [main] { main->stop(); });
  AppDelegate app;
  std::shared_ptr<MainViewController> mainVC;
  main->post([&] {
    app.applicationDidFinishLaunching(*defaults);
    oxlog("MAIN - started, settings in {}", defaults->filePath().string());
    MainViewController::Services services;
    services.screen = std::make_shared<HeadlessMainScreen>();
    services.presenter = presenter;
    services.browsers = std::make_shared<AvahiBrowserFactory>();
    mainVC = MainViewController::create(std::move(services));
    loadCatalogueAtStartup();  // viewDidLoad builds the catalogue first of all
    mainVC->viewDidLoad();
    if (cl->connectAddress) {
      mainVC->connectManually(*cl->connectAddress, std::to_string(cl->instance));
    } else {
      mainVC->viewDidAppear();
    }
  });
  if (cl->duration >= 0) main->postAfter(cl->duration, [main] { main->stop(); });
  main->run();
  {
    // The screens end as the main queue's last step, on the thread that ran it.
    Queue::DrivingScope onMain(*main);
    if (auto live = presenter->current()) live->shutdown();
    if (mainVC) mainVC->shutdown();
  }
  defaults->synchronize();
  oxlog("MAIN - stopped");
  return 0;
}
