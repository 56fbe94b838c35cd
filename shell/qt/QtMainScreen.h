#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "discovery/HostList.h"
#include "discovery/MainScreen.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

class Haptics;
class MainViewController;
class Reachability;

// The main page's screen half: what the page shows, as Qt properties, and
// the page's buttons, passed to the connection flow. The state line is a
// key (qsTrId on the page) with an optional argument; a text that is no key
// (an error's description) shows as it is. Main queue (the GUI thread).
class QtMainScreen final : public QObject,
                           public MainScreen,
                           public std::enable_shared_from_this<QtMainScreen> {
  Q_OBJECT
  Q_PROPERTY(QString stateKey READ stateKey NOTIFY changed)
  Q_PROPERTY(QString stateArgument READ stateArgument NOTIFY changed)
  Q_PROPERTY(bool stateIsError READ stateIsError NOTIFY changed)
  Q_PROPERTY(bool discovering READ discovering NOTIFY changed)
  Q_PROPERTY(bool buttonsEnabled READ buttonsEnabled NOTIFY changed)
  Q_PROPERTY(bool phoneFound READ phoneFound NOTIFY changed)
  Q_PROPERTY(bool computerFound READ computerFound NOTIFY changed)
  Q_PROPERTY(bool playState READ playState NOTIFY changed)
  Q_PROPERTY(QString ownAddress READ ownAddress NOTIFY changed)
  Q_PROPERTY(QString hudKey READ hudKey NOTIFY changed)
  Q_PROPERTY(QString hudArgument READ hudArgument NOTIFY changed)
  Q_PROPERTY(QStringList hostChoices READ hostChoices NOTIFY changed)
  Q_PROPERTY(QStringList historyChoices READ historyChoices NOTIFY changed)
 public:
  QtMainScreen();

  // The flow whose state the page reads and whose operations the buttons
  // call, and the Wi-Fi watcher it uses.
  void attach(std::weak_ptr<MainViewController> flow, std::shared_ptr<Reachability> wifi);
  // Where the phone's own address comes from (default: getIPAddress).
  void setAddressSource(std::function<std::string()> source) { addressSource_ = std::move(source); }
  // The motor behind the long press's impact (default: none).
  void setHaptics(std::shared_ptr<Haptics> haptics) { haptics_ = std::move(haptics); }

  QString stateKey() const { return stateKey_; }
  QString stateArgument() const { return stateArgument_; }
  bool stateIsError() const { return stateIsError_; }
  bool discovering() const { return discovering_; }
  bool buttonsEnabled() const { return buttonsEnabled_; }
  bool phoneFound() const { return phoneFound_; }
  bool computerFound() const { return computerFound_; }
  bool playState() const { return playState_; }
  QString ownAddress() const { return ownAddress_; }
  QString hudKey() const { return hudKey_; }
  QString hudArgument() const { return hudArgument_; }
  QStringList hostChoices() const { return hostChoices_; }
  // The history sheet's entries, "name (address)", newest first; the sheet
  // is open while there are some.
  QStringList historyChoices() const { return historyChoices_; }

  // MainScreen.
  void update_ui_for_discover(bool discovering) override;
  void update_ui_for_discovered() override;
  void showInfo(const std::string& text) override;
  void showError(const std::string& text) override;
  void hudShowWithTitleAndIcon(const std::string& title, const std::string& icon) override;
  void hudHide(double afterSeconds) override;
  void chooseHost(const std::vector<HostRecord>& hosts,
                  std::function<void(std::optional<size_t>)> choice) override;
  bool isViewInWindow() const override { return showing_; }
  bool isPlayState() const override { return playState_; }
  void setShowing(bool showing) { showing_ = showing; }
  // Closes the host choice and the history sheet without an answer, and
  // asks the page to close its sheets and the pages over it.
  void dismissPresented() override;

  // The page's buttons.
  Q_INVOKABLE void refresh();
  // The add button: with the plus symbol it asks the page for the manual
  // sheet (manualRequested); with the play symbol it connects.
  Q_INVOKABLE void add();
  // A long press on the add button: an impact, then the history sheet; with
  // no history (or a broken one, which is dropped) the same as add().
  Q_INVOKABLE void addLongPressed();
  // The history sheet's answer: an index into historyChoices, or -1 for
  // cancel. A chosen host is connected by its address and port.
  Q_INVOKABLE void chooseHistoryAt(int index);
  // The sheet's "clear all": the history and the last host's name and port
  // go (its address stays, as the manual sheet's start text), and a search
  // starts unless one runs.
  Q_INVOKABLE void clearHistory();
  Q_INVOKABLE void connectManually(const QString& address, const QString& instance);
  // The start text of the sheet's address field: the last host's address.
  Q_INVOKABLE QString lastHostAddress() const;
  // The host chooser's answer: an index into hostChoices, or -1 for cancel.
  Q_INVOKABLE void chooseHostAt(int index);
  // A tap on the computer picture.
  Q_INVOKABLE void openLiveScreen();
  // A page (options, help) covers the main page (true) or has gone
  // (false). Covered, the flow sees the screen as gone from the window;
  // uncovered, it appears again, unless the pages were closed for the live
  // screen, whose own close brings the screen back.
  Q_INVOKABLE void setCovered(bool covered);

 signals:
  void changed();
  void manualRequested();
  // Whatever is open over the main page should close (dismissPresented).
  void dismissRequested();

 private:
  void setState(QString key, QString argument, bool error);
  void setPlayState(bool play);
  void closeHistory();
  std::shared_ptr<MainViewController> flow() const { return flow_.lock(); }

  std::weak_ptr<MainViewController> flow_;
  std::shared_ptr<Reachability> wifi_;
  std::function<std::string()> addressSource_;
  std::shared_ptr<Haptics> haptics_;
  QString stateKey_, stateArgument_;
  bool stateIsError_ = false;
  bool discovering_ = false;
  bool buttonsEnabled_ = true;
  bool phoneFound_ = false;
  bool computerFound_ = false;
  bool playState_ = false;
  QString ownAddress_;
  QString hudKey_, hudArgument_;
  QStringList hostChoices_;
  std::function<void(std::optional<size_t>)> choice_;
  QStringList historyChoices_;
  std::vector<HostList::Remembered> historyHosts_;
  bool showing_ = true;
  bool covered_ = false;
  bool dismissing_ = false;
  TimerHandle computerTimer_, playTimer_, hudTimer_;
};

}  // namespace oxelo
