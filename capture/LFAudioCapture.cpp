#include "capture/LFAudioCapture.h"

#include "platform/log/Log.h"

namespace oxelo {

std::shared_ptr<LFAudioCapture> LFAudioCapture::create(
    std::shared_ptr<LFLiveAudioConfiguration> configuration,
    std::shared_ptr<AudioBackend> backend) {
  if (!backend) backend = AudioBackend::current();
  return std::shared_ptr<LFAudioCapture>(
      new LFAudioCapture(std::move(configuration), std::move(backend)));
}

LFAudioCapture::LFAudioCapture(std::shared_ptr<LFLiveAudioConfiguration> configuration,
                               std::shared_ptr<AudioBackend> backend)
    : configuration_(std::move(configuration)),
      taskQueue_(Queue::create("LFAudioCapture.taskQueue")) {
  input_ = backend->makeInput(static_cast<unsigned>(configuration_->audioSampleRate()),
                              static_cast<unsigned>(configuration_->numberOfChannels()));
}

LFAudioCapture::~LFAudioCapture() {
  isRunning_ = false;
  taskQueue_->runSync([this] {
    if (input_) input_->stop();
    input_.reset();
  });
  taskQueue_->stop();
}

void LFAudioCapture::setDelegate(std::weak_ptr<LFAudioCaptureDelegate> delegate) {
  std::lock_guard lock(delegateMutex_);
  delegate_ = std::move(delegate);
}

void LFAudioCapture::setRunning(bool running) {
  if (running_.exchange(running) == running) return;
  if (!running) {
    isRunning_ = false;  // the capture thread stops the input with its next block
    return;
  }
  taskQueue_->post([weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self) return;
    self->isRunning_ = true;
    oxlog("MicrophoneSource: startRunning");
    if (!self->input_) return;
    LFAudioCapture* capture = self.get();  // the capture thread ends before we do
    self->input_->start([capture](const uint8_t* data, size_t size, const AudioTimeStamp& time) {
      capture->renderBlock(data, size, time);
    });
  });
}

void LFAudioCapture::renderBlock(const uint8_t* data, size_t size,
                                 const AudioTimeStamp& timeStamp) {
  if (!isRunning_) {
    taskQueue_->post([weak = weak_from_this()] {
      auto self = weak.lock();
      // A start asked for since keeps the input running.
      if (!self || self->isRunning_ || !self->input_ || !self->input_->isStarted()) return;
      self->input_->stop();
      oxlog("MicrophoneSource: stopRunning");
    });
    return;
  }
  std::shared_ptr<LFAudioCaptureDelegate> delegate;
  {
    std::lock_guard lock(delegateMutex_);
    delegate = delegate_.lock();
  }
  if (!delegate) return;
  std::vector<uint8_t> block =
      muted_ ? std::vector<uint8_t>(size, 0) : std::vector<uint8_t>(data, data + size);
  delegate->captureOutputAudioData(this, block, &timeStamp);
}

void LFAudioCapture::setUseBackMic(bool /*useBackMic*/) {
  // The built-in microphone has no data sources to choose from: nothing to
  // select, and useBackMic stays as it is.
}

}  // namespace oxelo
