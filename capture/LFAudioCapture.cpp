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
  // Tasks on taskQueue use `this` while the capture is alive: the destructor
  // waits on taskQueue, so it cannot finish under a running task, and a task
  // must not hold the capture itself, or the last release could move the
  // destructor onto taskQueue, where it could no longer wait for the stop.
  taskQueue_->post([this, weak = weak_from_this()] {
    if (weak.expired()) return;
    isRunning_ = true;
    oxlog("MicrophoneSource: startRunning");
    if (!input_) return;
    input_->start([this](const uint8_t* data, size_t size, const AudioTimeStamp& time) {
      renderBlock(data, size, time);  // the capture thread ends before we do
    });
  });
}

void LFAudioCapture::renderBlock(const uint8_t* data, size_t size,
                                 const AudioTimeStamp& timeStamp) {
  if (!isRunning_) {
    taskQueue_->post([this, weak = weak_from_this()] {
      // A start asked for since keeps the input running.
      if (weak.expired() || isRunning_ || !input_ || !input_->isStarted()) return;
      input_->stop();
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
