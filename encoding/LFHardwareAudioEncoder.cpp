#include "encoding/LFHardwareAudioEncoder.h"

#include <algorithm>

namespace oxelo {

LFHardwareAudioEncoder::LFHardwareAudioEncoder(
    std::shared_ptr<LFLiveAudioConfiguration> configuration, AacConverterFactory converterFactory)
    : configuration_(std::move(configuration)),
      converterFactory_(converterFactory ? std::move(converterFactory) : makeLibavAacConverter),
      bufferLength_(static_cast<size_t>(configuration_->bufferLength())),
      audioInfo_(std::make_shared<const Bytes>(
          configuration_->asc(), configuration_->asc() + LFLiveAudioConfiguration::kAscLength)),
      leftBuf_(bufferLength_),
      aacBuf_() {
  aacBuf_.reserve(bufferLength_);
}

bool LFHardwareAudioEncoder::createAudioConvert() {
  if (converter_) return true;
  converter_ = converterFactory_(*configuration_);
  return converter_ != nullptr;
}

void LFHardwareAudioEncoder::encodeAudioData(const Bytes& data, uint64_t timeStamp) {
  if (!createAudioConvert()) return;
  if (bufferLength_ == 0) return;
  const size_t held = static_cast<size_t>(leftLength_);
  const size_t total = held + data.size();
  if (total < bufferLength_) {
    std::copy(data.begin(), data.end(), leftBuf_.begin() + static_cast<std::ptrdiff_t>(held));
    leftLength_ = static_cast<int64_t>(total);
    return;
  }
  std::vector<uint8_t> working;
  working.reserve(total);
  working.insert(working.end(), leftBuf_.begin(),
                 leftBuf_.begin() + static_cast<std::ptrdiff_t>(held));
  working.insert(working.end(), data.begin(), data.end());
  const size_t whole = total / bufferLength_ * bufferLength_;
  for (size_t offset = 0; offset < whole; offset += bufferLength_) {
    encodeBuffer(working.data() + offset, timeStamp);
  }
  leftLength_ = static_cast<int64_t>(total - whole);
  std::fill(leftBuf_.begin(), leftBuf_.end(), 0);
  std::copy(working.begin() + static_cast<std::ptrdiff_t>(whole), working.end(), leftBuf_.begin());
}

void LFHardwareAudioEncoder::encodeBuffer(const uint8_t* block, uint64_t timeStamp) {
  if (converter_->encodeBlock(block, aacBuf_) != 0) return;
  auto frame = std::make_shared<LFAudioFrame>();
  frame->timestamp = timeStamp;
  frame->data = aacBuf_;
  frame->audioInfo = audioInfo_;
  std::shared_ptr<LFAudioEncodingDelegate> delegate;
  {
    std::lock_guard lock(delegateMutex_);
    delegate = aacDeleage_.lock();
  }
  if (delegate) delegate->audioEncoderAudioFrame(this, std::move(frame));
}

void LFHardwareAudioEncoder::setDelegate(std::weak_ptr<LFAudioEncodingDelegate> delegate) {
  std::lock_guard lock(delegateMutex_);
  aacDeleage_ = std::move(delegate);
}

}  // namespace oxelo
