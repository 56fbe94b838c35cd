#include "media/LFLiveVideoSessionPreset.h"

#include "platform/camera/CaptureTypes.h"

namespace oxelo {

namespace {

struct Step {
  VideoSize portrait;
  const char* capturePreset;
};

constexpr Step kSteps[] = {
    {{360, 640}, AVCaptureSessionPreset640x480},
    {{480, 640}, AVCaptureSessionPreset640x480},
    {{540, 960}, AVCaptureSessionPresetiFrame960x540},
    {{600, 800}, AVCaptureSessionPreset1280x720},
    {{720, 1280}, AVCaptureSessionPreset1280x720},
    {{960, 1280}, AVCaptureSessionPreset1920x1080},
    {{1080, 1920}, AVCaptureSessionPreset1920x1080},
    {{1440, 2560}, AVCaptureSessionPreset3840x2160},
    {{2160, 3840}, AVCaptureSessionPreset3840x2160},
};

const Step& stepOf(LFLiveVideoSessionPreset preset) {
  return kSteps[preset <= kLFLiveVideoSessionPresetLast ? preset : 1];
}

}  // namespace

VideoSize portraitSizeOfPreset(LFLiveVideoSessionPreset preset) { return stepOf(preset).portrait; }

const char* capturePresetOfPreset(LFLiveVideoSessionPreset preset) {
  return stepOf(preset).capturePreset;
}

}  // namespace oxelo
