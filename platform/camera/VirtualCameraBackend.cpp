#include "platform/camera/VirtualCameraBackend.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "platform/camera/VirtualPicture.h"
#include "platform/dispatch/Clock.h"

namespace oxelo {

namespace {

using Json = nlohmann::json;

struct TypeName {
  const char* shortName;
  const char* type;
  const char* displayName;
};

constexpr TypeName kTypes[] = {
    {"wide", AVCaptureDeviceTypeBuiltInWideAngleCamera, "Camera"},
    {"telephoto", AVCaptureDeviceTypeBuiltInTelephotoCamera, "Telephoto Camera"},
    {"ultraWide", AVCaptureDeviceTypeBuiltInUltraWideCamera, "Ultra Wide Camera"},
    {"dual", AVCaptureDeviceTypeBuiltInDualCamera, "Dual Camera"},
    {"dualWide", AVCaptureDeviceTypeBuiltInDualWideCamera, "Dual Wide Camera"},
    {"triple", AVCaptureDeviceTypeBuiltInTripleCamera, "Triple Camera"},
};

const TypeName* findType(const std::string& text) {
  for (const auto& t : kTypes) {
    if (text == t.shortName || text == t.type) return &t;
  }
  return nullptr;
}

// Every mode, point, lens, gain, bias, torch and option.
CaptureDeviceCapabilities fullCapabilities(bool torch) {
  CaptureDeviceCapabilities c;
  c.focusModes = 0b111;
  c.exposureModes = 0b1111;
  c.whiteBalanceModes = 0b111;
  c.focusPointOfInterest = true;
  c.exposurePointOfInterest = true;
  c.lockingFocusWithCustomLensPosition = true;
  c.lockingWhiteBalanceWithCustomDeviceGains = true;
  c.maxWhiteBalanceGain = 4.0f;
  c.minExposureTargetBias = -8.0f;
  c.maxExposureTargetBias = 8.0f;
  c.torch = torch;
  c.lowLightBoost = true;
  c.smoothAutoFocus = true;
  c.subjectAreaChangeMonitoring = true;
  return c;
}

struct FormatLimits {
  float minISO = 32;
  float maxISO = 3072;
  CaptureTime minExposure = CaptureTime::make(14, 1000000);
  CaptureTime maxExposure = CaptureTime::make(1, 2);
  double maxZoom = 16.0;
};

// One "420v" and one "420f" format of a size.
void addFormats(CaptureDeviceDescription& d, int32_t width, int32_t height,
                std::vector<AVFrameRateRange> ranges, FormatLimits limits, bool hdr = false) {
  for (const char* subtype : {kPixelFormat420VideoRange, kPixelFormat420FullRange}) {
    CaptureDeviceFormat f;
    f.mediaSubType = subtype;
    f.width = width;
    f.height = height;
    f.videoSupportedFrameRateRanges = ranges;
    f.minISO = limits.minISO;
    f.maxISO = limits.maxISO;
    f.minExposureDuration = limits.minExposure;
    f.maxExposureDuration = limits.maxExposure;
    f.videoMaxZoomFactor = limits.maxZoom;
    f.videoHDRSupported = hdr;
    d.formats.push_back(std::move(f));
  }
}

AVFrameRateRange upTo(double rate) { return AVFrameRateRange::fromRates(1, rate); }

VirtualCameraSpec camera(const char* id, const char* name, const char* type,
                         AVCaptureDevicePosition position, bool torch) {
  VirtualCameraSpec spec;
  auto& d = spec.description;
  d.uniqueID = id;
  d.localizedName = name;
  d.deviceType = type;
  d.position = position;
  d.location = "virtual";
  d.capabilities = fullCapabilities(torch);
  return spec;
}

// The high-speed formats expose no longer than one frame and need more gain.
FormatLimits highSpeed(double rate, double maxZoom) {
  FormatLimits l;
  l.minISO = 64;
  l.maxISO = 2048;
  l.maxExposure = CaptureTime::make(1, static_cast<int32_t>(rate));
  l.maxZoom = maxZoom;
  return l;
}

// Error reporting with the place in the document.
struct Reader {
  std::string& error;

  bool fail(const std::string& where, const std::string& what) {
    error = where + ": " + what;
    return false;
  }
  bool checkKeys(const Json& object, const std::string& where,
                 std::initializer_list<const char*> allowed) {
    if (!object.is_object()) return fail(where, "must be an object");
    for (auto it = object.begin(); it != object.end(); ++it) {
      bool known = false;
      for (const char* k : allowed) known = known || it.key() == k;
      if (!known) return fail(where, fmt::format("unknown key \"{}\"", it.key()));
    }
    return true;
  }
  bool number(const Json& v, const std::string& where, double& out) {
    if (!v.is_number()) return fail(where, "must be a number");
    out = v.get<double>();
    return true;
  }
  bool positiveInteger(const Json& v, const std::string& where, int32_t& out) {
    if (!v.is_number_integer() || v.get<int64_t>() < 1 || v.get<int64_t>() > 65535)
      return fail(where, "must be a whole number from 1 to 65535");
    out = v.get<int32_t>();
    return true;
  }
  bool boolean(const Json& v, const std::string& where, bool& out) {
    if (!v.is_boolean()) return fail(where, "must be true or false");
    out = v.get<bool>();
    return true;
  }
  bool text(const Json& v, const std::string& where, std::string& out) {
    if (!v.is_string() || v.get<std::string>().empty())
      return fail(where, "must be a non-empty text");
    out = v.get<std::string>();
    return true;
  }
  // [low, high] with low <= high.
  bool pair(const Json& v, const std::string& where, double& low, double& high) {
    if (!v.is_array() || v.size() != 2 || !v[0].is_number() || !v[1].is_number())
      return fail(where, "must be a pair of numbers [low, high]");
    low = v[0].get<double>();
    high = v[1].get<double>();
    if (low > high) return fail(where, "the first number must not be above the second");
    return true;
  }
  bool modes(const Json& v, const std::string& where, int64_t highest, uint32_t& out) {
    if (!v.is_array()) return fail(where, "must be a list of mode numbers");
    out = 0;
    for (const auto& m : v) {
      if (!m.is_number_integer() || m.get<int64_t>() < 0 || m.get<int64_t>() > highest)
        return fail(where, fmt::format("holds a mode that is not 0 to {}", highest));
      out |= CaptureDeviceCapabilities::modeBit(m.get<int64_t>());
    }
    return true;
  }
  bool deviceType(const Json& v, const std::string& where, const TypeName*& out) {
    std::string t;
    if (!text(v, where, t)) return false;
    out = findType(t);
    if (!out)
      return fail(where, fmt::format("unknown camera type \"{}\" (wide, telephoto, ultraWide, "
                                     "dual, dualWide, triple)",
                                     t));
    return true;
  }

  bool rates(const Json& v, const std::string& where, std::vector<AVFrameRateRange>& out) {
    if (v.is_number()) {
      double rate = v.get<double>();
      if (!(rate >= 1)) return fail(where, "must be a rate of at least 1");
      out.push_back(upTo(rate));
      return true;
    }
    if (!v.is_array() || v.empty())
      return fail(where, "must be a rate or a list of [min, max] ranges");
    for (size_t i = 0; i < v.size(); ++i) {
      double low = 0, high = 0;
      if (!pair(v[i], fmt::format("{}[{}]", where, i), low, high)) return false;
      if (low <= 0) return fail(fmt::format("{}[{}]", where, i), "rates must be above 0");
      out.push_back(AVFrameRateRange::fromRates(low, high));
    }
    return true;
  }

  bool format(const Json& v, const std::string& where, CaptureDeviceDescription& d) {
    if (!checkKeys(v, where,
                   {"width", "height", "fps", "subtypes", "iso", "exposure", "maxZoom", "hdr"}))
      return false;
    for (const char* required : {"width", "height", "fps"}) {
      if (!v.contains(required)) return fail(where, fmt::format("needs \"{}\"", required));
    }
    int32_t width = 0, height = 0;
    std::vector<AVFrameRateRange> ranges;
    if (!positiveInteger(v["width"], where + ".width", width)) return false;
    if (!positiveInteger(v["height"], where + ".height", height)) return false;
    if (!rates(v["fps"], where + ".fps", ranges)) return false;
    FormatLimits limits;
    bool hdr = false;
    double low = 0, high = 0;
    if (v.contains("iso")) {
      if (!pair(v["iso"], where + ".iso", low, high)) return false;
      limits.minISO = static_cast<float>(low);
      limits.maxISO = static_cast<float>(high);
    }
    if (v.contains("exposure")) {
      if (!pair(v["exposure"], where + ".exposure", low, high)) return false;
      if (low <= 0) return fail(where + ".exposure", "durations must be above 0");
      limits.minExposure = CaptureTime::withSeconds(low, 1000000000);
      limits.maxExposure = CaptureTime::withSeconds(high, 1000000000);
    }
    if (v.contains("maxZoom")) {
      if (!number(v["maxZoom"], where + ".maxZoom", limits.maxZoom)) return false;
      if (limits.maxZoom < 1) return fail(where + ".maxZoom", "must be at least 1");
    }
    if (v.contains("hdr") && !boolean(v["hdr"], where + ".hdr", hdr)) return false;
    std::vector<std::string> subtypes = {kPixelFormat420VideoRange, kPixelFormat420FullRange};
    if (v.contains("subtypes")) {
      const auto& s = v["subtypes"];
      if (!s.is_array() || s.empty()) return fail(where + ".subtypes", "must be a non-empty list");
      subtypes.clear();
      for (const auto& t : s) {
        if (t != kPixelFormat420VideoRange && t != kPixelFormat420FullRange)
          return fail(where + ".subtypes", "holds a subtype other than \"420v\" and \"420f\"");
        subtypes.push_back(t.get<std::string>());
      }
    }
    for (const auto& subtype : subtypes) {
      CaptureDeviceDescription one;
      addFormats(one, width, height, ranges, limits, hdr);
      for (auto& f : one.formats) {
        if (f.mediaSubType == subtype) d.formats.push_back(std::move(f));
      }
    }
    return true;
  }

  bool controls(const Json& v, const std::string& where, CaptureDeviceCapabilities& c) {
    if (!checkKeys(v, where,
                   {"focusModes", "focusPointOfInterest", "lensPosition", "exposureModes",
                    "exposurePointOfInterest", "exposureBias", "whiteBalanceModes",
                    "whiteBalanceGains", "maxWhiteBalanceGain", "torch", "lowLightBoost",
                    "smoothAutoFocus", "subjectAreaMonitoring"}))
      return false;
    auto flag = [&](const char* key, bool& out) {
      return !v.contains(key) || boolean(v[key], where + "." + key, out);
    };
    if (v.contains("focusModes") && !modes(v["focusModes"], where + ".focusModes", 2, c.focusModes))
      return false;
    if (v.contains("exposureModes") &&
        !modes(v["exposureModes"], where + ".exposureModes", 3, c.exposureModes))
      return false;
    if (v.contains("whiteBalanceModes") &&
        !modes(v["whiteBalanceModes"], where + ".whiteBalanceModes", 2, c.whiteBalanceModes))
      return false;
    if (!flag("focusPointOfInterest", c.focusPointOfInterest) ||
        !flag("lensPosition", c.lockingFocusWithCustomLensPosition) ||
        !flag("exposurePointOfInterest", c.exposurePointOfInterest) ||
        !flag("whiteBalanceGains", c.lockingWhiteBalanceWithCustomDeviceGains) ||
        !flag("torch", c.torch) || !flag("lowLightBoost", c.lowLightBoost) ||
        !flag("smoothAutoFocus", c.smoothAutoFocus) ||
        !flag("subjectAreaMonitoring", c.subjectAreaChangeMonitoring))
      return false;
    if (v.contains("exposureBias")) {
      double low = 0, high = 0;
      if (!pair(v["exposureBias"], where + ".exposureBias", low, high)) return false;
      c.minExposureTargetBias = static_cast<float>(low);
      c.maxExposureTargetBias = static_cast<float>(high);
    }
    if (v.contains("maxWhiteBalanceGain")) {
      double gain = 0;
      if (!number(v["maxWhiteBalanceGain"], where + ".maxWhiteBalanceGain", gain)) return false;
      if (gain < 1) return fail(where + ".maxWhiteBalanceGain", "must be at least 1");
      c.maxWhiteBalanceGain = static_cast<float>(gain);
    }
    return true;
  }

  bool camera(const Json& v, const std::string& where, size_t index, VirtualCameraSpec& spec) {
    if (!checkKeys(v, where,
                   {"type", "position", "name", "uniqueID", "formats", "controls", "constituents",
                    "switchOverZoomFactors", "lockError"}))
      return false;
    for (const char* required : {"type", "position", "formats"}) {
      if (!v.contains(required)) return fail(where, fmt::format("needs \"{}\"", required));
    }
    auto& d = spec.description;
    const TypeName* type = nullptr;
    if (!deviceType(v["type"], where + ".type", type)) return false;
    d.deviceType = type->type;
    const auto& p = v["position"];
    if (p == "back" || p == 1) {
      d.position = AVCaptureDevicePositionBack;
    } else if (p == "front" || p == 2) {
      d.position = AVCaptureDevicePositionFront;
    } else {
      return fail(where + ".position", "must be \"back\" or \"front\"");
    }
    const char* positionName = d.position == AVCaptureDevicePositionBack ? "back" : "front";
    d.uniqueID = fmt::format("virtual:{}:{}:{}", positionName, type->shortName, index);
    d.localizedName = fmt::format(
        "{} {}", d.position == AVCaptureDevicePositionBack ? "Back" : "Front", type->displayName);
    d.location = "virtual";
    if (v.contains("uniqueID") && !text(v["uniqueID"], where + ".uniqueID", d.uniqueID))
      return false;
    if (v.contains("name") && !text(v["name"], where + ".name", d.localizedName)) return false;
    const auto& formats = v["formats"];
    if (!formats.is_array()) return fail(where + ".formats", "must be a list");
    for (size_t i = 0; i < formats.size(); ++i) {
      if (!format(formats[i], fmt::format("{}.formats[{}]", where, i), d)) return false;
    }
    d.capabilities = fullCapabilities(true);
    if (v.contains("controls") && !controls(v["controls"], where + ".controls", d.capabilities))
      return false;
    if (v.contains("constituents")) {
      const auto& c = v["constituents"];
      if (!c.is_array() || c.size() < 2)
        return fail(where + ".constituents", "must list at least two camera types");
      for (size_t i = 0; i < c.size(); ++i) {
        const TypeName* part = nullptr;
        if (!deviceType(c[i], fmt::format("{}.constituents[{}]", where, i), part)) return false;
        d.capabilities.constituentDeviceTypes.push_back(part->type);
      }
    }
    if (v.contains("switchOverZoomFactors")) {
      const auto& z = v["switchOverZoomFactors"];
      if (!v.contains("constituents"))
        return fail(where + ".switchOverZoomFactors", "needs \"constituents\"");
      if (!z.is_array()) return fail(where + ".switchOverZoomFactors", "must be a list of numbers");
      for (const auto& f : z) {
        if (!f.is_number() || f.get<double>() < 1)
          return fail(where + ".switchOverZoomFactors", "must be a list of factors of at least 1");
        d.capabilities.virtualDeviceSwitchOverVideoZoomFactors.push_back(f.get<double>());
      }
    }
    if (v.contains("lockError")) {
      std::string reason;
      if (!text(v["lockError"], where + ".lockError", reason)) return false;
      spec.lockError = reason;
    }
    return true;
  }
};

}  // namespace

struct VirtualCaptureDriver::Stream : std::enable_shared_from_this<Stream> {
  std::shared_ptr<Queue> queue;
  std::weak_ptr<CameraFrameSink> sink;
  int32_t width = 0, height = 0;
  ColourMatrix matrix = ColourMatrix::bt709;
  ColourRange range = ColourRange::full;
  bool halfTurned = false;
  double start = 0;      // time of frame 0 on the queue's clock
  double duration = 0;   // seconds per frame
  uint64_t next = 0;     // the next frame number to deliver
  bool stopped = false;  // queue only
  TimerHandle timer;     // queue only

  // Waits for the next frame's time.
  void schedule() {
    double due = start + static_cast<double>(next) * duration;
    double wait = std::max(0.0, due - queue->clock().now());
    timer = queue->postAfter(wait, [weak = weak_from_this()] {
      if (auto self = weak.lock()) self->tick();
    });
  }

  void tick() {
    if (stopped) return;
    // The latest frame whose time has come; earlier ones that were missed
    // are skipped.
    double now = queue->clock().now();
    auto due = static_cast<uint64_t>(std::floor((now - start) / duration + 1e-9));
    uint64_t n = std::max(next, due);
    auto frame = CameraFrame::make(width, height);
    frame->matrix = matrix;
    frame->range = range;
    frame->presentationTime = start + static_cast<double>(n) * duration;
    renderVirtualPicture(*frame, n, halfTurned);
    next = n + 1;
    if (auto s = sink.lock()) s->cameraDidOutputFrame(frame);
    if (!stopped) schedule();
  }
};

VirtualCaptureDriver::~VirtualCaptureDriver() { stopStreaming(); }

CameraError VirtualCaptureDriver::startStreaming(const CaptureDeviceFormat& format,
                                                 CaptureTime frameDuration,
                                                 std::weak_ptr<CameraFrameSink> sink) {
  if (stream_) return {CameraErrorCode::failed, "the virtual camera is already streaming"};
  if (format.width < 1 || format.height < 1 || !frameDuration.isValid() ||
      frameDuration.seconds() <= 0)
    return {CameraErrorCode::unsupported,
            "the virtual camera cannot stream " + format.description()};
  auto stream = std::make_shared<Stream>();
  stream->queue = Queue::create("virtual camera", defaultClock());
  stream->sink = std::move(sink);
  stream->width = format.width;
  stream->height = format.height;
  stream->halfTurned = halfTurned_;
  stream->matrix = format.height >= 720 ? ColourMatrix::bt709 : ColourMatrix::bt601;
  stream->range =
      format.mediaSubType == kPixelFormat420VideoRange ? ColourRange::video : ColourRange::full;
  stream->duration = frameDuration.seconds();
  stream->start = stream->queue->clock().now();
  stream->queue->post([stream] { stream->schedule(); });
  stream_ = std::move(stream);
  return {};
}

void VirtualCaptureDriver::stopStreaming() {
  if (!stream_) return;
  auto stream = std::move(stream_);
  // Runs after any frame in delivery; none starts after it.
  stream->queue->runSync([&stream] {
    stream->stopped = true;
    stream->timer.cancel();
  });
  stream->queue->stop();
}

bool VirtualCaptureDriver::apply(const CaptureDeviceState& wanted, DeviceSetting setting) {
  // A one-time mode set again starts again.
  auto start = [](bool oneTime, double scan) {
    return oneTime ? std::optional(defaultClock()->now() + scan) : std::nullopt;
  };
  if (setting == DeviceSetting::focusMode || setting == DeviceSetting::lensPosition)
    focusSettles_ = start(wanted.focusMode == 1, kVirtualFocusScanSeconds);
  if (setting == DeviceSetting::exposureMode || setting == DeviceSetting::customExposure)
    exposureSettles_ = start(wanted.exposureMode == 1, kVirtualMeteringSeconds);
  if (setting == DeviceSetting::whiteBalanceMode || setting == DeviceSetting::whiteBalanceGains)
    whiteBalanceSettles_ = start(wanted.whiteBalanceMode == 1, kVirtualMeteringSeconds);
  return true;
}

void VirtualCaptureDriver::refresh(CaptureDeviceState& state) {
  double now = defaultClock()->now();
  auto settle = [now](int64_t& mode, std::optional<double>& at) {
    if (mode != 1 || !at || now < *at) return;
    mode = 0;
    at.reset();
  };
  settle(state.focusMode, focusSettles_);
  settle(state.exposureMode, exposureSettles_);
  settle(state.whiteBalanceMode, whiteBalanceSettles_);
}

bool VirtualCaptureDriver::lockForConfiguration(std::string& error) {
  if (!lockError_) return true;
  error = *lockError_;
  return false;
}

std::vector<VirtualCameraSpec> defaultVirtualCameras() {
  std::vector<VirtualCameraSpec> set;
  FormatLimits normal;

  auto wide = camera("virtual:back:wide", "Back Camera", AVCaptureDeviceTypeBuiltInWideAngleCamera,
                     AVCaptureDevicePositionBack, true);
  addFormats(wide.description, 640, 480, {upTo(30)}, normal);
  addFormats(wide.description, 960, 540, {upTo(30)}, normal);
  addFormats(wide.description, 1280, 720, {upTo(60)}, normal);
  addFormats(wide.description, 1280, 720, {upTo(240)}, highSpeed(240, 16));
  addFormats(wide.description, 1920, 1080, {upTo(30)}, normal, true);
  addFormats(wide.description, 1920, 1080, {upTo(60)}, normal);
  addFormats(wide.description, 1920, 1080, {upTo(120)}, highSpeed(120, 16));
  addFormats(wide.description, 3840, 2160, {upTo(30)}, normal, true);
  addFormats(wide.description, 3840, 2160, {upTo(60)}, normal);
  set.push_back(std::move(wide));

  FormatLimits tele;
  tele.minISO = 40;
  tele.maxISO = 2560;
  tele.maxZoom = 8;
  auto telephoto =
      camera("virtual:back:telephoto", "Back Telephoto Camera",
             AVCaptureDeviceTypeBuiltInTelephotoCamera, AVCaptureDevicePositionBack, true);
  addFormats(telephoto.description, 640, 480, {upTo(30)}, tele);
  addFormats(telephoto.description, 960, 540, {upTo(30)}, tele);
  addFormats(telephoto.description, 1280, 720, {upTo(60)}, tele);
  addFormats(telephoto.description, 1920, 1080, {upTo(30)}, tele, true);
  addFormats(telephoto.description, 1920, 1080, {upTo(60)}, tele);
  addFormats(telephoto.description, 3840, 2160, {upTo(30)}, tele);
  set.push_back(std::move(telephoto));

  FormatLimits ultra;
  ultra.maxZoom = 8;
  auto ultraWide =
      camera("virtual:back:ultrawide", "Back Ultra Wide Camera",
             AVCaptureDeviceTypeBuiltInUltraWideCamera, AVCaptureDevicePositionBack, true);
  addFormats(ultraWide.description, 640, 480, {upTo(30)}, ultra);
  addFormats(ultraWide.description, 960, 540, {upTo(30)}, ultra);
  addFormats(ultraWide.description, 1280, 720, {upTo(120)}, highSpeed(120, 8));
  addFormats(ultraWide.description, 1920, 1080, {upTo(60)}, ultra);
  addFormats(ultraWide.description, 3840, 2160, {upTo(30)}, ultra);
  set.push_back(std::move(ultraWide));

  FormatLimits tri;
  tri.maxZoom = 48;
  auto triple = camera("virtual:back:triple", "Back Triple Camera",
                       AVCaptureDeviceTypeBuiltInTripleCamera, AVCaptureDevicePositionBack, true);
  triple.description.capabilities.constituentDeviceTypes = {
      AVCaptureDeviceTypeBuiltInUltraWideCamera, AVCaptureDeviceTypeBuiltInWideAngleCamera,
      AVCaptureDeviceTypeBuiltInTelephotoCamera};
  triple.description.capabilities.virtualDeviceSwitchOverVideoZoomFactors = {2.0, 6.0};
  addFormats(triple.description, 640, 480, {upTo(30)}, tri);
  addFormats(triple.description, 960, 540, {upTo(30)}, tri);
  addFormats(triple.description, 1280, 720, {upTo(60)}, tri);
  addFormats(triple.description, 1920, 1080, {upTo(30)}, tri, true);
  addFormats(triple.description, 1920, 1080, {upTo(60)}, tri);
  addFormats(triple.description, 3840, 2160, {upTo(30)}, tri, true);
  addFormats(triple.description, 3840, 2160, {upTo(60)}, tri);
  set.push_back(std::move(triple));

  FormatLimits frontLimits;
  frontLimits.minISO = 25;
  frontLimits.maxISO = 2000;
  frontLimits.maxZoom = 8;
  auto front =
      camera("virtual:front:wide", "Front Camera", AVCaptureDeviceTypeBuiltInWideAngleCamera,
             AVCaptureDevicePositionFront, false);
  addFormats(front.description, 640, 480, {upTo(30)}, frontLimits);
  addFormats(front.description, 960, 540, {upTo(30)}, frontLimits);
  addFormats(front.description, 1280, 720, {upTo(60)}, frontLimits);
  addFormats(front.description, 1920, 1080, {upTo(60)}, frontLimits, true);
  addFormats(front.description, 3840, 2160, {upTo(30)}, frontLimits);
  set.push_back(std::move(front));
  return set;
}

std::optional<std::vector<VirtualCameraSpec>> parseVirtualCameras(const Json& document,
                                                                  std::string& error) {
  Reader r{error};
  if (!r.checkKeys(document, "document", {"cameras"})) return std::nullopt;
  if (!document.contains("cameras") || !document["cameras"].is_array()) {
    r.fail("document", "needs \"cameras\", a list of cameras");
    return std::nullopt;
  }
  std::vector<VirtualCameraSpec> set;
  std::set<std::string> ids;
  const auto& cameras = document["cameras"];
  for (size_t i = 0; i < cameras.size(); ++i) {
    std::string where = fmt::format("cameras[{}]", i);
    VirtualCameraSpec spec;
    if (!r.camera(cameras[i], where, i, spec)) return std::nullopt;
    if (!ids.insert(spec.description.uniqueID).second) {
      r.fail(where + ".uniqueID", fmt::format("\"{}\" is used twice", spec.description.uniqueID));
      return std::nullopt;
    }
    set.push_back(std::move(spec));
  }
  return set;
}

std::optional<std::vector<VirtualCameraSpec>> loadVirtualCameras(const std::filesystem::path& file,
                                                                 std::string& error) {
  std::ifstream in(file);
  if (!in) {
    error = fmt::format("{}: cannot be read", file.string());
    return std::nullopt;
  }
  std::stringstream text;
  text << in.rdbuf();
  Json document = Json::parse(text.str(), nullptr, /*allow_exceptions=*/false);
  if (document.is_discarded()) {
    error = fmt::format("{}: not valid JSON", file.string());
    return std::nullopt;
  }
  std::string detail;
  auto set = parseVirtualCameras(document, detail);
  if (!set) error = fmt::format("{}: {}", file.string(), detail);
  return set;
}

std::optional<std::vector<std::shared_ptr<CaptureDevice>>> openVirtualCameras(std::string& error) {
  std::vector<VirtualCameraSpec> specs;
  const char* file = std::getenv("OXELO_VIRTUAL_CAMERAS");
  if (file && *file) {
    std::string detail;
    auto loaded = loadVirtualCameras(file, detail);
    if (!loaded) {
      error = "OXELO_VIRTUAL_CAMERAS " + detail;
      return std::nullopt;
    }
    specs = std::move(*loaded);
  } else {
    specs = defaultVirtualCameras();
  }
  std::vector<std::shared_ptr<CaptureDevice>> devices;
  for (auto& spec : specs) devices.push_back(makeVirtualCamera(std::move(spec)));
  return devices;
}

std::shared_ptr<CaptureDevice> makeVirtualCamera(VirtualCameraSpec spec) {
  auto& d = spec.description;
  // Mounted as on the phone: the back sensor a quarter turn one way, the
  // front one the other way, so that the front camera sees the scene half
  // turned against the back one.
  const bool front = d.position == AVCaptureDevicePositionFront;
  d.mounting.facing = front ? CameraFacing::front : CameraFacing::back;
  d.mounting.sensorRotation = front ? 90 : 270;
  auto driver = std::make_unique<VirtualCaptureDriver>(std::move(spec.lockError), front);
  return std::make_shared<CaptureDevice>(std::move(spec.description), std::move(driver));
}

}  // namespace oxelo
