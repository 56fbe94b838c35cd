#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "capture/LFAudioCapture.h"
#include "capture/LFVideoCapture.h"
#include "media/LFAudioEncoding.h"
#include "media/LFLiveAudioConfiguration.h"
#include "media/LFLiveVideoConfiguration.h"
#include "media/LFVideoEncoding.h"
#include "media/PixelBuffer.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/Observable.h"
#include "platform/dispatch/Semaphore.h"
#include "transport/CameraStatusSource.h"
#include "transport/OXStreamSocket.h"

namespace oxelo {

class OXLiveSession;

// What the session tells the live view. Every operation is optional and is
// called on the main queue.
class OXLiveSessionDelegate {
 public:
  virtual ~OXLiveSessionDelegate() = default;
  virtual void liveSessionLiveStateDidChange(OXLiveSession* /*session*/,
                                             LiveStreamState /*state*/) {}
  virtual void liveSessionDebugInfo(OXLiveSession* /*session*/, const LFLiveDebug& /*info*/) {}
  virtual void liveSessionErrorCode(OXLiveSession* /*session*/, LiveStreamError /*errorCode*/) {}
  // A point the host asks to focus on, both coordinates 0.0 to 1.0.
  virtual void liveSessionClientSetFocusPoint(OXLiveSession* /*session*/, double /*x*/,
                                              double /*y*/) {}
  virtual void liveSessionClientSetAutoStatusForItem(OXLiveSession* /*session*/, int64_t /*item*/) {
  }
};

// What a live session is made with; every member has a default.
struct LiveSessionEnvironment {
  // Makes the encoders on first use; without one no frame is encoded.
  std::shared_ptr<EncoderFactory> encoders;
  // How the socket is made (its queue, the life cycle, the HEVC flag).
  StreamSocketEnvironment socket;
  // The values of the tail blocks; default: the camera model's device
  // chosen by the settings, with the battery monitor.
  std::shared_ptr<StreamStatusSource> statusSource;
  // The microphone's backend; default: the process's.
  std::shared_ptr<AudioBackend> audioBackend;
};

// Ties the capture sources, the two encoders and the stream socket into one
// pipeline: it decides when frames may enter the stream (`uploading`, the
// alignment of audio and video), rewrites their timestamps relative to the
// first frame of a connection, turns the socket's verdicts into bit-rate
// steps within the configuration's bounds, and passes the socket's state and
// errors to the delegate on the main queue.
//
// Queues: created, started and stopped on the main queue, where every
// delegate call runs and the camera and microphone properties are set.
// Pictures of the camera come on the video processing queue, sound and
// pushVideo()/pushAudio() on the capture threads, encoder callbacks on the encoders' threads;
// socket reports on rtmpSendQueue or the main queue. `uploading` and the alignment flags are single
// atomic values; `lock` guards the reference timestamp. The socket and the encoders are held under
// a mutex only to copy the pointer, so stopLive() on the main queue can drop them while frames
// flow.
//
// Held by shared pointer (create()); the delegate is held weakly.
class OXLiveSession final : public LFAudioCaptureDelegate,
                            public LFVideoCaptureDelegate,
                            public LFAudioEncodingDelegate,
                            public LFVideoEncodingDelegate,
                            public LFStreamSocketDelegate,
                            public std::enable_shared_from_this<OXLiveSession> {
 public:
  using Environment = LiveSessionEnvironment;

  // initWithAudioConfiguration:videoConfiguration:captureType:. Throws
  // InitError "OXLiveSession init error" with "audioConfiguration is nil " or
  // "videoConfiguration is nil " when the capture type needs a missing one.
  // Reads the setting `adaptiveBitrate` once. Main queue.
  static std::shared_ptr<OXLiveSession> create(
      std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration,
      std::shared_ptr<LFLiveVideoConfiguration> videoConfiguration,
      int64_t captureType = kCaptureMaskDefault, Environment environment = {});
  // Sets both capture sources not running.
  ~OXLiveSession() override;
  OXLiveSession(const OXLiveSession&) = delete;
  OXLiveSession& operator=(const OXLiveSession&) = delete;

  void setDelegate(std::weak_ptr<OXLiveSessionDelegate> delegate) { delegate_ = delegate; }

  // ---- Main queue ----

  // Stores the stream info (a null one is ignored) and gives it the two
  // configurations; the rate the camera really runs at, when it has one,
  // goes into the video configuration that the info packet tells.
  void initStreamInfo(std::shared_ptr<LFLiveStreamInfo> streamInfo);
  std::shared_ptr<LFLiveStreamInfo> streamInfo();
  // The socket, created on first use from the stream info; for the hand-over
  // of the carrier (setCarrier).
  std::shared_ptr<OXStreamSocket> streamSocket();
  // Makes this session the delegate of both encoders (creating them), asks
  // the camera front to end its draws in the video encoder's own layout, then
  // starts the socket.
  void startLive();
  // Stops uploading, stops and drops the socket, then the video and the
  // audio encoder: a later startLive() gets new ones.
  void stopLive();

  // Presets: the camera state as a dictionary, under the settings' key
  // names. savePreset() fills `preset` (a stale `deviceType` is removed
  // first); loadPreset() applies one to the running session, a missing key
  // reading as false or 0. The camera changes only when the preset names its
  // type; the torch (0.5 s), the zoom (1.0 s) and a manual exposure (0.1 s)
  // follow on the main queue after the rest.
  void savePreset(UserDefaults::Json& preset);
  void loadPreset(const UserDefaults::Json& preset);

  // Requests to the host on the carrier in use, outside the stream buffer.
  void sendCommandPacketWithParameter(uint32_t command, uint32_t parameter);
  void remoteSnapshot();
  void remoteRecord(bool record);

  // Observable properties.
  bool running() const { return running_.get(); }
  // Sets the video and then the audio source running, or not.
  void setRunning(bool running);
  bool dim() const { return dim_.get(); }
  void setDim(bool dim);
  bool recording() const { return recording_.get(); }
  void setRecording(bool recording) { recording_.set(recording); }
  // Forwarded to the audio source; false without one.
  bool muted() const;
  void setMuted(bool muted);
  bool useBackMic() const;
  void setUseBackMic(bool useBackMic);
  Observable<bool>& runningProperty() { return running_; }
  Observable<bool>& dimProperty() { return dim_; }
  Observable<bool>& recordingProperty() { return recording_; }
  Observable<bool>& mutedProperty() { return mutedNotice_; }
  Observable<bool>& useBackMicProperty() { return useBackMicNotice_; }

  // Forwarded to the video source, whose values they read (false, 0 or empty
  // without one); each notifies with the source's value after the write.
  // Turns the camera round, whatever the argument; the microphone follows
  // (the back one unless the front camera is in use now), and the next key
  // frame tells the host of the new camera.
  void setCaptureDevicePosition(int64_t position);
  int64_t captureDevicePosition() const;
  std::string captureDeviceType() const;
  bool mirror() const;
  void setMirror(bool mirror);
  bool beautyFace() const;
  void setBeautyFace(bool beautyFace);
  int64_t beautyMethod() const;
  void setBeautyMethod(int64_t beautyMethod);
  // The beauty filter's strength and brightness, 0 to 1 (0.5 each at
  // first); a filter made later by a rebuild of the chain starts at its
  // own defaults again.
  double beautyLevel() const;
  void setBeautyLevel(double level);
  double brightLevel() const;
  void setBrightLevel(double level);
  bool autoRotate() const;
  void setAutoRotate(bool autoRotate);
  // The live view, told of camera switches and failures.
  void setCaptureDelegate(std::weak_ptr<LFVideoCaptureViewDelegate> delegate);
  // The preview surface; none takes the preview off (the stream goes on).
  std::shared_ptr<GPUImageView> preView() const;
  void setPreView(std::shared_ptr<GPUImageView> view);
  // The rate the camera runs at; 0 without a video source.
  int32_t videoFrameRate() const;
  Observable<int64_t>& captureDevicePositionProperty() { return positionNotice_; }
  Observable<bool>& mirrorProperty() { return mirrorNotice_; }
  Observable<bool>& beautyFaceProperty() { return beautyFaceNotice_; }
  Observable<int64_t>& beautyMethodProperty() { return beautyMethodNotice_; }
  Observable<double>& beautyLevelProperty() { return beautyLevelNotice_; }
  Observable<double>& brightLevelProperty() { return brightLevelNotice_; }
  Observable<bool>& autoRotateProperty() { return autoRotateNotice_; }
  // Torch level 0 to 5; above 5 is refused by the camera.
  int64_t torch() const;
  void setTorch(int64_t level);
  // Zoom as the camera front takes it (see LFVideoCapture::setZoomScale);
  // reads the device's factor, 1.0 without a camera.
  double zoomScale() const;
  void setZoomScale(double scale);
  // The camera's locks as one value: 0 none, 1 the automatic modes held
  // (exposure, focus and white balance neither automatic nor locked), 2
  // exposure, focus and white balance locked. Writing a value other than 0
  // also stops the watch for a change of the subject area.
  int64_t aeafLock() const;
  void setAeafLock(int64_t lock);
  Observable<int64_t>& torchProperty() { return torchNotice_; }
  Observable<double>& zoomScaleProperty() { return zoomNotice_; }
  Observable<int64_t>& aeafLockProperty() { return aeafLockNotice_; }

  bool showDebugInfo() const { return showDebugInfo_; }
  void setShowDebugInfo(bool show) { showDebugInfo_ = show; }
  bool adaptiveBitrate() const { return adaptiveBitrate_; }
  LiveStreamState state() const { return state_; }
  int64_t captureType() const { return captureType_; }
  bool uploading() const { return uploading_; }
  LFLiveDebug lastDebugInfo() const;
  // The video encoder's running bit rate; 0 without one.
  int64_t videoBitrate() const;
  const std::shared_ptr<LFLiveVideoConfiguration>& videoConfiguration() const {
    return videoConfiguration_;
  }
  const std::shared_ptr<LFLiveAudioConfiguration>& audioConfiguration() const {
    return audioConfiguration_;
  }
  // The microphone, created on first use when the capture type has bit 0.
  std::shared_ptr<LFAudioCapture> audioCaptureSource();
  // The camera front, created on first use when the capture type has bit 1,
  // with this session as the receiver of its pictures.
  std::shared_ptr<LFVideoCapture> videoCapture();

  // Pictures of the camera that reached the session, and those of them
  // handed to the encoder (while uploading).
  uint64_t capturedPictureCount() const { return capturedPictures_; }
  uint64_t encodedPictureCount() const { return encodedPictures_; }

  // ---- Any thread ----

  // Input from the caller (capture type bits 3 and 2), encoded only while
  // uploading. Audio is stamped with the media clock like the capture path;
  // a picture with its presentation time (media-clock seconds) set keeps
  // it, so a source's own schedule survives delivery jitter.
  void pushVideo(std::shared_ptr<PixelBuffer> pixelBuffer);
  void pushAudio(const Bytes& audioData);

  // LFStreamSocketDelegate.
  bool deviceChanged() const override { return deviceChanged_; }
  void setDeviceChanged(bool changed) override { deviceChanged_ = changed; }
  const StreamStatusSource* statusSource() const override { return statusSource_.get(); }
  void socketBufferStatus(LFStreamSocket* socket, BufferVerdict status) override;
  void socketStatus(LFStreamSocket* socket, LiveStreamState status) override;
  void socketDidError(LFStreamSocket* socket, LiveStreamError errorCode) override;
  void socketDebug(LFStreamSocket* socket, const LFLiveDebug& debugInfo) override;
  void socketClientCommand(LFStreamSocket* socket, const wire::HostCommandRecord& command) override;

  // Capture and encoder callbacks. The colour tags of a picture are the
  // encoder's business; the session passes the picture on as it is.
  void captureOutput(LFVideoCapture& capture, const std::shared_ptr<PixelBuffer>& buffer,
                     const LFVideoColourTags* tags) override;
  void captureOutputAudioData(LFAudioCapture* capture, const std::vector<uint8_t>& audioData,
                              const AudioTimeStamp* timeStamp) override;
  void audioEncoderAudioFrame(LFAudioEncoding* encoder,
                              std::shared_ptr<LFAudioFrame> frame) override;
  void videoEncoderVideoFrame(LFVideoEncoding* encoder,
                              std::shared_ptr<LFVideoFrame> frame) override;

  // Whether frames may enter the stream: always with only one kind of media,
  // else once a key frame has followed the first audio frame.
  bool AVAlignment() const;
  // `timestamp` relative to the first frame of the connection.
  uint64_t uploadTimestamp(uint64_t timestamp);

#ifdef OXELO_QUEUE_CHECKS
  // Test builds: called once, on the frame's thread, when a frame finds no
  // reference timestamp yet and is about to set it, so that a test can let
  // the other encoder's frame in at that very moment.
  void setReferenceClaimHookForTesting(std::function<void()> hook) {
    referenceClaimHook_ = std::move(hook);
  }
#endif

 private:
  OXLiveSession(std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration,
                std::shared_ptr<LFLiveVideoConfiguration> videoConfiguration, int64_t captureType,
                Environment environment);

  std::shared_ptr<OXLiveSessionDelegate> delegate() const { return delegate_.lock(); }
  std::shared_ptr<LFVideoEncoding> videoEncoder();  // created on first use
  std::shared_ptr<LFAudioEncoding> audioEncoder();  // created on first use
  std::shared_ptr<LFVideoEncoding> currentVideoEncoder() const;
  std::shared_ptr<LFAudioEncoding> currentAudioEncoder() const;
  std::shared_ptr<OXStreamSocket> currentSocket() const;
  std::shared_ptr<LFVideoCapture> currentVideoCapture() const;
  void encodeAudio(const Bytes& audioData);
  void pushSendBuffer(std::shared_ptr<LFFrame> frame);
  // Posts to the main queue a task that runs only while the session lives.
  void postToMain(std::function<void(OXLiveSession&)> task);
  // Tells the observers of the camera values that the host's commands and
  // the presets change (torch, zoom, locks) their present values.
  void refreshCameraProperties();
  // The host's sub-commands of command 18 on the camera front.
  void setCameraParameter(LFVideoCapture& capture, int32_t parameter, int32_t value);
  void zoomStep(bool in);
  void presetCommand(uint32_t command, int32_t slot);

  const std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration_;
  const std::shared_ptr<LFLiveVideoConfiguration> videoConfiguration_;
  const int64_t captureType_;
  Environment env_;
  std::shared_ptr<StreamStatusSource> statusSource_;
  std::shared_ptr<CameraStatusSource> cameraStatus_;  // statusSource_ when it is the default
  std::weak_ptr<OXLiveSessionDelegate> delegate_;

  Observable<bool> running_{false};
  Observable<bool> dim_{false};
  Observable<bool> recording_{false};
  Observable<bool> mutedNotice_{false};
  Observable<bool> useBackMicNotice_{false};
  Observable<int64_t> positionNotice_{0};
  Observable<bool> mirrorNotice_{false};
  Observable<bool> beautyFaceNotice_{false};
  Observable<int64_t> beautyMethodNotice_{0};
  Observable<double> beautyLevelNotice_{0.0};
  Observable<double> brightLevelNotice_{0.0};
  Observable<bool> autoRotateNotice_{false};
  Observable<int64_t> torchNotice_{0};
  Observable<double> zoomNotice_{1.0};
  Observable<int64_t> aeafLockNotice_{0};

  std::atomic<bool> deviceChanged_{true};
  std::atomic<bool> adaptiveBitrate_{false};
  std::atomic<bool> showDebugInfo_{false};
  std::atomic<bool> hasCaptureAudio_{false};
  std::atomic<bool> hasKeyFrameVideo_{false};
  std::atomic<bool> uploading_{false};
  std::atomic<LiveStreamState> state_{LiveStreamState::Idle};  // written on the main queue
  std::atomic<uint64_t> relativeTimestamps_{0};
  std::atomic<uint64_t> capturedPictures_{0};
  std::atomic<uint64_t> encodedPictures_{0};
  Semaphore lock_{1};  // guards the read of relativeTimestamps_ in uploadTimestamp()
#ifdef OXELO_QUEUE_CHECKS
  std::function<void()> referenceClaimHook_;  // set by a test before frames flow
#endif

  mutable std::mutex mutex_;  // guards the pointers below (not the objects)
  std::shared_ptr<LFLiveStreamInfo> streamInfo_;
  std::shared_ptr<OXStreamSocket> socket_;
  std::shared_ptr<LFVideoEncoding> videoEncoder_;
  std::shared_ptr<LFAudioEncoding> audioEncoder_;
  std::shared_ptr<LFAudioCapture> audioCaptureSource_;
  std::shared_ptr<LFVideoCapture> videoCaptureSource_;
  LFLiveDebug debugInfo_;
};

}  // namespace oxelo
