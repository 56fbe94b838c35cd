#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "live/LiveServices.h"
#include "media/VideoSizeCatalogue.h"
#include "platform/camera/CameraSystem.h"
#include "platform/defaults/UserDefaults.h"
#include "shell/options/OptionsServices.h"

namespace oxelo {

enum class OptionsGroup { video, general, about };

// The rows of the options screen, in screen order.
enum class OptionsRow {
  orientation,
  videoSize,
  frameRate,
  quality,
  encoder,
  audio,
  backCamera,
  grid,
  autoConnect,
  language,
  help,  // a tap opens the help in the system's browser, a long press the advanced screen
  contact,
  share,
};

// How a row is used: a sheet of values to choose from, a switch, or an
// action on a tap.
enum class OptionsRowKind { sheet, toggle, action };

struct OptionsRowInfo {
  OptionsRow row;
  OptionsGroup group;
  OptionsRowKind kind;
  const char* titleKey;  // O_ localisation key
};

// Every row in screen order.
const std::vector<OptionsRowInfo>& optionsRows();

// One camera the back camera row offers: its name (a localisation key for
// the first entry) and its device type.
struct BackCameraChoice {
  std::string name;
  std::string deviceType;
};

// The back camera row's list: none when the device has no back camera of
// the triple, dual wide or dual type; else "O_CAMERA_SINGLE" with the wide
// angle type first, then each of those cameras by name, in that order of
// types.
std::optional<std::vector<BackCameraChoice>> backCameraChoices(const CameraSystem& cameras);
// The setting `backCameraType` for a device type: dual 1, dual wide 2,
// triple 3, anything else 0.
int backCameraTypeOf(const std::string& deviceType);

// What the device offers that the lists depend on.
struct OptionsDevice {
  // HEVC is offered when the device decodes it itself (the same answer the
  // info packet gives the host).
  bool hevcDecodeSupported = false;
  // Stereo is offered when the microphone path records two channels.
  bool stereoAudio = true;
  bool tablet = false;
  std::shared_ptr<CameraSystem> cameras;  // none: CameraSystem::current()
};

// The texts of the about group's footer.
struct AboutInfo {
  std::string displayName = "Oxelo";
  std::string shortVersion;
  std::string buildVersion;
  std::string systemName;
  std::string systemVersion;
  std::string address;  // the phone's own address; empty when it has none

  // This program on this system: the version, uname(), getIPAddress().
  static AboutInfo current();
};

// "Oxelo 0.1.0.1 (Linux 6.1.0)", then ", " and the address when there is one.
std::string aboutFooterText(const AboutInfo& info);

// The options screen without its display: the lists it offers, the value
// each row shows, and what a choice writes. Every change goes straight into
// the settings store and is made durable; the next live session reads it
// when it builds its configuration, and nothing is sent to a running one.
// The sheets' entries are localisation keys where the table gives keys
// (orientation, quality, audio, the single camera) and plain texts
// elsewhere. Main queue; the view, haptics and opener outlive the screen.
class OptionsScreen {
 public:
  OptionsScreen(std::shared_ptr<UserDefaults> defaults, VideoSizeCatalogue& catalogue,
                OptionsDevice device, OptionsView& view, Haptics& haptics, UrlOpener& opener);

  // Builds the lists (viewDidLoad): from the catalogue as it stands, the
  // device and the camera set.
  void load();

  const std::vector<std::string>& videoOrientations() const { return videoOrientations_; }
  const std::vector<std::string>& videoSizes() const { return videoSizes_; }
  const std::vector<std::string>& videoFrameRates() const { return videoFps_; }
  const std::vector<std::string>& videoCodecs() const { return videoCodecs_; }
  const std::vector<std::string>& qualities() const { return qualities_; }
  const std::vector<std::string>& audioFormats() const { return audioFormats_; }
  const std::optional<std::vector<BackCameraChoice>>& backCameras() const { return backCameras_; }

  // The entries of a sheet row's sheet; empty for the other rows.
  std::vector<std::string> choices(OptionsRow row) const;
  // The value a row shows: stored values beyond a list are shown modulo its
  // length, a rate as it stands. Empty for switches and actions.
  std::string shownValue(OptionsRow row) const;
  bool switchValue(OptionsRow row) const;  // grid and automatic connection
  // The back camera row has no height when there is no list.
  bool isHidden(OptionsRow row) const;

  // A choice of entry `index` of the row's sheet. False, with nothing
  // written, for an index beyond the sheet or a row without one.
  bool select(OptionsRow row, size_t index);
  void setSwitch(OptionsRow row, bool on);
  // A tap on an action row: the help page and the mail to the maker go to
  // the system's browser and mail program, the share items to the view.
  void activate(OptionsRow row);
  // A long press on `row` at gesture state `state`: on the help row at state
  // 1 (began) it gives a heavy impact and opens the advanced screen. True
  // when it did.
  bool longPress(OptionsRow row, int state);
  // The done button: tells the presenter (the sheet's own dismissal
  // callback does not fire for a dismissal by code), then closes the sheet.
  void done();
  // The presenter's callback for done(); may be empty.
  std::function<void()> onDismissed;

  // Section headers: none for the general group, else 32 (48 on a tablet);
  // the about group's footer is 64 high.
  int headerHeight(OptionsGroup group) const;
  static int footerHeight(OptionsGroup group) { return group == OptionsGroup::about ? 64 : 0; }
  // The recommending text (S_RECOMMEND_CONTENT with the starred name in
  // its "%@"), the store address and the picture's name.
  ShareItems shareItems() const;

 private:
  long long integer(const char* key) const;
  void writeInteger(const char* key, long long value);
  void rebuildVideoSizes();
  void capFrameRate();
  void selectVideoSize(size_t n);
  void selectBackCamera(size_t n);
  void selectLanguage(size_t n);

  std::shared_ptr<UserDefaults> defaults_;
  VideoSizeCatalogue& catalogue_;
  OptionsDevice device_;
  OptionsView& view_;
  Haptics& haptics_;
  UrlOpener& opener_;

  std::vector<std::string> videoOrientations_;
  std::vector<std::string> videoSizes_;
  std::vector<std::string> videoFps_;
  std::vector<std::string> videoCodecs_;
  std::vector<std::string> qualities_;
  std::vector<std::string> audioFormats_;
  std::optional<std::vector<BackCameraChoice>> backCameras_;
};

}  // namespace oxelo
