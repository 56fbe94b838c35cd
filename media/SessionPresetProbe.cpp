#include "media/SessionPresetProbe.h"

namespace oxelo {

std::vector<std::string> probeDeviceTypes(long long backCameraType) {
  std::vector<std::string> types;
  if (backCameraType == 1) types.push_back(AVCaptureDeviceTypeBuiltInDualCamera);
  if (backCameraType == 2) types.push_back(AVCaptureDeviceTypeBuiltInDualWideCamera);
  if (backCameraType == 3) types.push_back(AVCaptureDeviceTypeBuiltInTripleCamera);
  types.push_back(AVCaptureDeviceTypeBuiltInWideAngleCamera);
  return types;
}

std::shared_ptr<CaptureDevice> probeBackCamera(long long backCameraType,
                                               const std::shared_ptr<CameraSystem>& cameras) {
  auto session = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
      probeDeviceTypes(backCameraType), AVMediaTypeVideo, AVCaptureDevicePositionBack, cameras);
  if (session.devices().empty()) return nullptr;
  return session.devices().front();
}

bool canSetSessionPreset(const CaptureDevice* camera, const std::string& capturePreset) {
  return camera && camera->supportsAVCaptureSessionPreset(capturePreset);
}

}  // namespace oxelo
