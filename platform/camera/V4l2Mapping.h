#pragma once

#include <cstdint>
#include <vector>

#include "platform/camera/CameraFrame.h"
#include "platform/camera/CaptureDeviceState.h"
#include "platform/camera/V4l2Probe.h"

namespace oxelo {

// How a V4L2 camera appears in the device model. Pure functions of the
// probe's records.
//
// Formats: every size of an NV12, YUYV or MJPEG (or JPEG) pixel format
// becomes two model formats, "420v" and "420f", with the native format kept
// in nativePixelFormat; capture converts to NV12 of that range. A size
// offered in several native formats appears once for each, so that the one
// with the higher rate can be chosen. Order: ascending area, then NV12, YUYV,
// MJPEG. Each discrete frame interval is a fixed-rate range; a stepwise one
// is one range.
//
// Controls, where the driver has them writable (V4l2ControlRoles below; the
// older and newer names drivers use are both taken):
//   exposure time   V4L2_CID_EXPOSURE_ABSOLUTE, in 100 us
//   exposure modes  V4L2_CID_EXPOSURE_AUTO: auto or aperture priority is
//                   continuous, manual (else shutter priority) is locked and
//                   custom; without it the older V4L2_CID_AUTOGAIN, which
//                   drives exposure and gain together
//   ISO             V4L2_CID_ISO_SENSITIVITY (its menu values, automatic
//                   through V4L2_CID_ISO_SENSITIVITY_AUTO), else V4L2_CID_GAIN,
//                   else V4L2_CID_ANALOGUE_GAIN, a gain taken as the device's
//                   ISO scale (automatic through V4L2_CID_AUTOGAIN)
//   exposure bias   V4L2_CID_AUTO_EXPOSURE_BIAS, in 0.001 EV
//   white balance   V4L2_CID_AUTO_WHITE_BALANCE or V4L2_CID_AUTO_N_PRESET_WHITE_BALANCE
//                   (continuous), V4L2_CID_DO_WHITE_BALANCE (one-time),
//                   V4L2_CID_WHITE_BALANCE_TEMPERATURE (gains go through the
//                   temperature, tint 0)
//   focus           V4L2_CID_FOCUS_AUTO (continuous), V4L2_CID_AUTO_FOCUS_START
//                   (one-time, settling into locked when V4L2_CID_AUTO_FOCUS_STATUS
//                   stops saying busy), V4L2_CID_AUTO_FOCUS_STOP, V4L2_CID_FOCUS_ABSOLUTE
//                   (lens position 0..1 over the control's range)
//   zoom            V4L2_CID_ZOOM_ABSOLUTE: factor 1 at the minimum, rising
//                   linearly to max / min (4 when the minimum is 0)
//   torch           V4L2_CID_FLASH_LED_MODE with a torch item and
//                   V4L2_CID_FLASH_TORCH_INTENSITY for the level, else the
//                   plain V4L2_CID_ILLUMINATORS_1 (on or off)
//   low-light boost V4L2_CID_EXPOSURE_AUTO_PRIORITY
//   video HDR       V4L2_CID_WIDE_DYNAMIC_RANGE
// A manual value is ignored while its automatic control is on, so every
// manual setting switches the matching automatic controls off first. A
// camera without a control has the feature unsupported in its capabilities
// (or its limits at 0), so that the model refuses the change up front.
// Points of interest, smooth focus, one-time exposure and subject-area
// monitoring have no V4L2 control and are not offered.

// The writable controls the device model uses, by role; null where the
// camera has none. Pointers into the info's controls.
struct V4l2ControlRoles {
  const V4l2Control* exposureAuto = nullptr;  // with at least one index below
  int64_t exposureAutoOn = -1;                // menu index; -1: none
  int64_t exposureManual = -1;
  const V4l2Control* autoGain = nullptr;
  const V4l2Control* exposureTime = nullptr;
  const V4l2Control* iso = nullptr;  // ISO menu or a gain
  const V4l2Control* isoAuto = nullptr;
  const V4l2Control* bias = nullptr;
  const V4l2Control* whiteBalanceAuto = nullptr;    // boolean
  const V4l2Control* whiteBalancePreset = nullptr;  // menu
  const V4l2Control* whiteBalanceOnce = nullptr;    // button
  const V4l2Control* temperature = nullptr;
  const V4l2Control* focusAuto = nullptr;
  const V4l2Control* focusStart = nullptr;
  const V4l2Control* focusStop = nullptr;
  const V4l2Control* focusStatus = nullptr;  // readable
  const V4l2Control* focusPosition = nullptr;
  const V4l2Control* zoom = nullptr;
  const V4l2Control* ledMode = nullptr;  // with a torch item
  const V4l2Control* torchIntensity = nullptr;
  const V4l2Control* illuminator = nullptr;
  const V4l2Control* lowLightBoost = nullptr;
  const V4l2Control* hdr = nullptr;

  // Exposure follows the scene by itself in continuous mode.
  bool automaticExposure() const { return exposureAutoOn >= 0 || (!exposureAuto && autoGain); }
  // Exposure can be held: a manual exposure mode, or nothing automatic.
  bool manualExposure() const { return exposureManual >= 0 || !exposureAuto; }
  bool automaticWhiteBalance() const;
  bool torch() const { return ledMode || illuminator; }
};
V4l2ControlRoles v4l2ControlRoles(const V4l2DeviceInfo& info);

std::vector<CaptureDeviceFormat> mapV4l2Formats(const V4l2DeviceInfo& info);
CaptureDeviceCapabilities mapV4l2Capabilities(const V4l2DeviceInfo& info);

// The position the driver (V4L2_CID_CAMERA_ORIENTATION), the firmware or udev
// reports; unspecified when none does.
AVCaptureDevicePosition reportedV4l2Position(const V4l2DeviceInfo& info);

// Positions for cameras in system order: a reported position stands; of the
// others the first is the back camera unless one reported the back, and the
// rest are front cameras.
std::vector<AVCaptureDevicePosition> assignV4l2Positions(
    const std::vector<AVCaptureDevicePosition>& reported);

// How the camera is mounted. Facing: V4L2_CID_CAMERA_ORIENTATION where the
// driver has it; else the firmware's or udev's placement for a camera that
// is not on USB; else external. Sensor rotation: V4L2_CID_CAMERA_SENSOR_ROTATION
// to the nearest quarter turn, else 0. A USB webcam is thus external with
// rotation 0.
CameraMounting v4l2Mounting(const V4l2DeviceInfo& info);

// The matrix and range of the frames the driver delivers, from the
// colorspace, ycbcr_enc and quantization fields of its format (their
// defaults resolved as V4L2 defines them). BT.601 and xvYCC 601 are 601;
// every other encoding is tagged 709.
struct V4l2FrameColour {
  ColourMatrix matrix = ColourMatrix::bt601;
  ColourRange range = ColourRange::video;
};
V4l2FrameColour v4l2FrameColour(uint32_t colorspace, uint32_t ycbcrEncoding, uint32_t quantization);

// The V4L2 pixel format that delivers a model format: the first of the
// device's formats with its native format and size; 0 when none does.
uint32_t v4l2FourccFor(const V4l2DeviceInfo& info, const CaptureDeviceFormat& format);

// The model's description: name from the card, unique id from the bus
// (else the node), type wide angle, the formats, capabilities and mounting
// above.
CaptureDeviceDescription describeV4l2Device(const V4l2DeviceInfo& info,
                                            AVCaptureDevicePosition position);

// Conversions between control values and model values.
int64_t snapToControl(const V4l2Control& control, double value);  // clamp, round to step
float lensPositionFromFocus(const V4l2Control& focus, int64_t value);
int64_t focusFromLensPosition(const V4l2Control& focus, float lensPosition);
double maxZoomFactorOf(const V4l2Control& zoom);
double zoomFactorFromV4l2(const V4l2Control& zoom, int64_t value);
int64_t v4l2FromZoomFactor(const V4l2Control& zoom, double factor);
CaptureTime exposureFromV4l2(int64_t hundredMicroseconds);
int64_t v4l2FromExposure(const V4l2Control& exposure, CaptureTime duration);
// The menu index of an integer menu whose value is nearest.
uint32_t nearestMenuIndex(const V4l2Control& menu, int64_t value);

}  // namespace oxelo
