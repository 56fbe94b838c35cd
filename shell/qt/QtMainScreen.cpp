#include "shell/qt/QtMainScreen.h"

#include <QRegularExpression>

#include "discovery/HostList.h"
#include "discovery/MainViewController.h"
#include "live/OXHelper.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/device/NetworkInterfaces.h"
#include "platform/device/Reachability.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"

namespace oxelo {

namespace {

// The found pictures: the computer follows the phone, the add button turns
// to play once they have changed.
constexpr double kComputerFoundDelay = 0.2;
constexpr double kPlayStateDelay = 0.5;

// "M_CONNECT_TO 10.0.0.2" is the key M_CONNECT_TO with the argument
// 10.0.0.2; a text whose first word is no key is shown whole.
std::pair<QString, QString> splitKey(const std::string& text) {
  static const QRegularExpression key(QStringLiteral("^([A-Z]+_[A-Z0-9_]+)(?: (.*))?$"),
                                      QRegularExpression::DotMatchesEverythingOption);
  const QString all = QString::fromStdString(text);
  const auto match = key.match(all);
  if (!match.hasMatch()) return {all, QString()};
  return {match.captured(1), match.captured(2)};
}

}  // namespace

QtMainScreen::QtMainScreen() : addressSource_([] { return getIPAddress(); }) {}

void QtMainScreen::attach(std::weak_ptr<MainViewController> flow,
                          std::shared_ptr<Reachability> wifi) {
  flow_ = std::move(flow);
  wifi_ = std::move(wifi);
}

void QtMainScreen::setState(QString key, QString argument, bool error) {
  stateKey_ = std::move(key);
  stateArgument_ = std::move(argument);
  stateIsError_ = error;
  emit changed();
}

void QtMainScreen::setPlayState(bool play) {
  playTimer_.cancel();
  playState_ = play;
  emit changed();
}

void QtMainScreen::update_ui_for_discover(bool discovering) {
  buttonsEnabled_ = true;
  discovering_ = discovering;
  if (discovering) {
    computerTimer_.cancel();
    phoneFound_ = computerFound_ = false;
    ownAddress_ = QString::fromStdString(addressSource_());
    setPlayState(false);
    setState(QStringLiteral("M_SEARCHING"), {}, false);
    return;
  }
  auto flow = this->flow();
  if ((wifi_ && wifi_->isReachableViaWiFi()) || (flow && flow->usbPlugged())) {
    emit changed();
    return;
  }
  // Only the network or a cable coming back leads out of this.
  buttonsEnabled_ = false;
  setState(QStringLiteral("M_NO_WIFI"), {}, true);
}

void QtMainScreen::update_ui_for_discovered() {
  auto weak = weak_from_this();
  if (!phoneFound_) {
    phoneFound_ = true;
    computerTimer_ = MainQueue::postAfter(kComputerFoundDelay, weakTask(weak, [](QtMainScreen& s) {
                                            s.computerFound_ = true;
                                            emit s.changed();
                                          }));
  }
  if (!playState_ && !playTimer_.isValid()) {
    playTimer_ = MainQueue::postAfter(kPlayStateDelay, weakTask(weak, [](QtMainScreen& s) {
                                        s.playTimer_ = {};
                                        s.setPlayState(true);
                                      }));
  }
  auto flow = this->flow();
  if (flow && flow->usbConnected()) {
    setState(QStringLiteral("M_USB_CONNECTED"), {}, false);
  } else if (flow && flow->hostDetected()) {
    const auto count = flow->arr_hosts().size();
    if (count < 2) {
      setState(QStringLiteral("M_FOUND_OXELO"),
               QString::fromStdString(flow->hostName().value_or(std::string())), false);
    } else {
      setState(QStringLiteral("M_FOUND_OXELOS"), QString::number(count), false);
    }
  } else {
    emit changed();
  }
}

void QtMainScreen::showInfo(const std::string& text) {
  auto [key, argument] = splitKey(text);
  setState(std::move(key), std::move(argument), false);
}

void QtMainScreen::showError(const std::string& text) {
  auto [key, argument] = splitKey(text);
  setState(std::move(key), std::move(argument), true);
}

void QtMainScreen::hudShowWithTitleAndIcon(const std::string& title, const std::string&) {
  if (!hudKey_.isEmpty()) return;  // one display at a time
  hudTimer_.cancel();
  std::tie(hudKey_, hudArgument_) = splitKey(title);
  emit changed();
}

void QtMainScreen::hudHide(double afterSeconds) {
  hudTimer_.cancel();
  auto hide = [](QtMainScreen& s) {
    s.hudKey_.clear();
    s.hudArgument_.clear();
    emit s.changed();
  };
  if (afterSeconds <= 0) return hide(*this);
  hudTimer_ = MainQueue::postAfter(afterSeconds, weakTask(weak_from_this(), hide));
}

void QtMainScreen::chooseHost(const std::vector<HostRecord>& hosts,
                              std::function<void(std::optional<size_t>)> choice) {
  if (hosts.empty()) return;
  hostChoices_.clear();
  for (const auto& host : hosts) hostChoices_ << QString::fromStdString(host.name);
  choice_ = std::move(choice);
  emit changed();
}

void QtMainScreen::chooseHostAt(int index) {
  if (!choice_) return;
  std::optional<size_t> chosen;
  if (index >= 0 && index < hostChoices_.size()) chosen = size_t(index);
  MainQueue::post([choice = std::move(choice_), chosen] { choice(chosen); });
  choice_ = nullptr;
  hostChoices_.clear();
  emit changed();
}

void QtMainScreen::refresh() {
  if (auto flow = this->flow()) flow->refresh();
}

void QtMainScreen::add() {
  if (!playState_) {
    emit manualRequested();
    return;
  }
  auto flow = this->flow();
  if (!flow) return;
  if (flow->usbConnected()) {
    flow->usb_discover();
  } else if (flow->arr_hosts().size() >= 2) {
    flow->choose_host();
  } else {
    flow->connectToHost();
    flow->usb_discover();
  }
}

void QtMainScreen::connectManually(const QString& address, const QString& instance) {
  if (auto flow = this->flow())
    flow->connectManually(address.trimmed().toStdString(), instance.trimmed().toStdString());
}

QString QtMainScreen::lastHostAddress() const {
  auto defaults = UserDefaults::standard();
  if (!defaults) return {};
  return QString::fromStdString(defaults->stringForKey(keys::lastHostIP).value_or(std::string()));
}

void QtMainScreen::openLiveScreen() {
  if (auto flow = this->flow()) flow->showLiveView();
}

void QtMainScreen::addLongPressed() {
  OXHelper::heavyVibrate(haptics_.get());
  auto hosts = HostList::history();
  if (hosts.empty()) return add();
  historyChoices_.clear();
  for (const auto& host : hosts)
    historyChoices_ << QStringLiteral("%1 (%2)").arg(QString::fromStdString(host.name),
                                                     QString::fromStdString(host.ip));
  historyHosts_ = std::move(hosts);
  emit changed();
}

void QtMainScreen::closeHistory() {
  historyHosts_.clear();
  historyChoices_.clear();
  emit changed();
}

void QtMainScreen::chooseHistoryAt(int index) {
  if (historyHosts_.empty()) return;
  std::optional<HostList::Remembered> chosen;
  if (index >= 0 && size_t(index) < historyHosts_.size()) chosen = historyHosts_[size_t(index)];
  closeHistory();
  auto flow = this->flow();
  if (chosen && flow) flow->connectViaIPAndPort(chosen->ip, chosen->port);
}

void QtMainScreen::clearHistory() {
  if (historyHosts_.empty()) return;
  closeHistory();
  HostList::forgetHistory();
  auto flow = this->flow();
  if (flow && !flow->hostDiscovering()) flow->discover();
}

void QtMainScreen::dismissPresented() {
  choice_ = nullptr;
  hostChoices_.clear();
  historyHosts_.clear();
  historyChoices_.clear();
  emit changed();
  dismissing_ = true;
  emit dismissRequested();
  dismissing_ = false;
}

void QtMainScreen::setCovered(bool covered) {
  if (covered == covered_) return;
  covered_ = covered;
  showing_ = !covered;
  auto flow = this->flow();
  if (!flow) return;
  if (covered) {
    flow->viewDidDisappear();
  } else if (!dismissing_) {
    flow->viewWillAppear();
    flow->viewDidAppear();
  }
}

}  // namespace oxelo
