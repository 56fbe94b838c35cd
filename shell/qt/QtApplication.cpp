#include "shell/qt/QtApplication.h"

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>

#include "discovery/AvahiBrowser.h"
#include "discovery/MainViewController.h"
#include "live/IdleTimer.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/device/AppLifecycle.h"
#include "platform/device/Reachability.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"
#include "shell/AppDelegate.h"
#include "shell/CameraCommands.h"
#include "shell/qt/FeedbackdFeedback.h"
#include "shell/qt/QtMainQueue.h"
#include "shell/qt/QtOptions.h"
#include "shell/qt/QtWindow.h"
#include "shell/qt/ScreenSaverInhibitor.h"

namespace oxelo {

int runWindow(int argc, char** argv, const WindowStart& start) {
  QGuiApplication app(argc, argv);
  QGuiApplication::setApplicationDisplayName(QStringLiteral("Oxelo"));
  // With no display (the offscreen platform of the tests and the
  // screenshots) the scene is drawn by the software renderer.
  if (QGuiApplication::platformName() == QStringLiteral("offscreen"))
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  installTranslations(app);

  auto main = Queue::createDriven("main");
  MainQueue::set(main);
  QtMainQueue driver(main);
  if (start.startSignals) start.startSignals(main, [] { QCoreApplication::quit(); });

  auto screen = std::make_shared<QtMainScreen>();
  std::shared_ptr<MainViewController> mainVC;
  QtLiveScreen::Sources sources;
  auto& environment = sources.services.view.sources.environment;
  environment.encoders = start.encoders;
  environment.socket.hevcDecodeSupported = start.hevcDecodeSupported;
  sources.services.displayAwake = std::make_shared<ScreenSaverInhibitor>();
  auto feedback = std::make_shared<FeedbackdFeedback>();
  sources.services.view.haptics = feedback;
  sources.services.view.sounds = feedback;
  screen->setHaptics(feedback);
  // 15 seconds without a touch cover the preview.
  auto idleTimer = IdleTimer::create();
  sources.services.idleTimer = idleTimer;
  IdleInputFilter idleInput(idleTimer);
  app.installEventFilter(&idleInput);
  // Hidden or suspended is the background; a window without the focus is
  // still seen.
  QObject::connect(&app, &QGuiApplication::applicationStateChanged, [](Qt::ApplicationState s) {
    const bool background = s == Qt::ApplicationHidden || s == Qt::ApplicationSuspended;
    MainQueue::post([background] {
      auto lifecycle = AppLifecycle::shared();
      if (background) {
        lifecycle->enterBackground();
      } else {
        lifecycle->enterForeground();
      }
    });
  });
  auto shell = std::make_shared<QtShell>(screen, sources);

  QQmlApplicationEngine engine;
  QtOptions::Sources options;
  options.defaults = start.defaults;
  options.haptics = feedback;
  options.device.hevcDecodeSupported = start.hevcDecodeSupported;
  registerOptions(engine, std::move(options));
  if (!loadWindow(engine, *shell)) {
    oxlog("MAIN - the window could not be loaded");
    return 2;
  }
  AppDelegate delegate;
  main->post([&] {
    delegate.applicationDidFinishLaunching(*start.defaults);
    oxlog("MAIN - started with a window, settings in {}", start.defaults->filePath().string());
    MainViewController::Services services;
    services.screen = screen;
    services.presenter = shell;
    services.browsers = std::make_shared<AvahiBrowserFactory>();
    // The page reads the same Wi-Fi watcher as the flow.
    services.reachability = Reachability::reachabilityForLocalWiFi();
    auto wifi = services.reachability;
    mainVC = MainViewController::create(std::move(services));
    screen->attach(mainVC, wifi);
    loadCatalogueAtStartup();
    mainVC->viewDidLoad();
    if (start.connectAddress) {
      mainVC->connectManually(*start.connectAddress, std::to_string(start.instance));
    } else {
      mainVC->viewDidAppear();
    }
  });
  if (start.duration >= 0) main->postAfter(start.duration, [] { QCoreApplication::quit(); });
  const int status = app.exec();
  // The screens end on the GUI thread, as the main queue's last step.
  if (auto live = shell->live()) live->shutdown();
  if (mainVC) mainVC->shutdown();
  main->stop();
  start.defaults->synchronize();
  oxlog("MAIN - stopped");
  return status;
}

}  // namespace oxelo
