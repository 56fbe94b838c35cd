#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/camera/CameraSystem.h"

namespace oxelo {

// Whether the back camera can deliver a capture preset, as the video
// configuration asks before it settles on a size. A throw-away question: no
// capture session is built and nothing is started.

// The device types asked for at the back, by the setting `backCameraType`:
// 1 the dual camera, 2 the dual wide camera, 3 the triple camera, each ahead
// of the wide-angle camera; any other value the wide-angle camera alone.
std::vector<std::string> probeDeviceTypes(long long backCameraType);

// The first back camera of those types in `cameras`; none if there is none.
std::shared_ptr<CaptureDevice> probeBackCamera(long long backCameraType,
                                               const std::shared_ptr<CameraSystem>& cameras);

// A missing camera can deliver nothing.
bool canSetSessionPreset(const CaptureDevice* camera, const std::string& capturePreset);

}  // namespace oxelo
