// The live session between encoders and socket: when frames may enter the stream, how their times
// are rewritten, the bit-rate steps, and how the socket's reports reach the live view.
#include <gtest/gtest.h>

#include "platform/defaults/SettingsKeys.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/GlTestSupport.h"
#include "tests/support/WireVectors.h"
#include "tests/transport/support/StreamSocketHarness.h"
#include "transport/InitError.h"
#include "wire/WireConstants.h"

namespace oxelo {
namespace {

struct FakeVideoEncoder final : LFVideoEncoding {
  void encodeVideoData(std::shared_ptr<PixelBuffer>, uint64_t t) override { encoded.push_back(t); }
  int64_t videoBitRate() const override { return rate; }
  void setVideoBitRate(int64_t videoBitRate) override { rate = videoBitRate; }
  void stopEncoder() override { stopped = true; }
  std::vector<uint64_t> encoded;
  int64_t rate = 1000000;
  bool stopped = false;
};

struct FakeAudioEncoder final : LFAudioEncoding {
  void encodeAudioData(const Bytes& data, uint64_t) override { bytes += data.size(); }
  void stopEncoder() override { stopped = true; }
  size_t bytes = 0;
  bool stopped = false;
};

// Makes fake encoders and keeps them for the test to look at.
struct FakeEncoders final : EncoderFactory {
  std::shared_ptr<LFVideoEncoding> makeVideoEncoder(
      std::shared_ptr<LFLiveVideoConfiguration>) override {
    return videos.emplace_back(std::make_shared<FakeVideoEncoder>());
  }
  std::shared_ptr<LFAudioEncoding> makeAudioEncoder(
      std::shared_ptr<LFLiveAudioConfiguration>) override {
    return audios.emplace_back(std::make_shared<FakeAudioEncoder>());
  }
  std::vector<std::shared_ptr<FakeVideoEncoder>> videos;
  std::vector<std::shared_ptr<FakeAudioEncoder>> audios;
};

class LiveSessionTest : public test::LiveSessionFixture {
 protected:
  std::shared_ptr<OXLiveSession> makeSession(int64_t captureType) {
    LiveSessionEnvironment environment;
    environment.encoders = encoders_;
    createSession(captureType, view_, environment)->startLive();
    return session_;
  }

  // The socket reports its state as it does on the send queue.
  void socketReports(LiveStreamState state) {
    session_->socketStatus(session_->streamSocket().get(), state);
    main_.drain();
  }
  void encoderGivesVideo(uint64_t timestamp, bool key) {
    session_->videoEncoderVideoFrame(nullptr, test::videoFrame(timestamp, key, {1}));
  }
  void encoderGivesAudio(uint64_t timestamp) {
    session_->audioEncoderAudioFrame(nullptr, test::audioFrame(timestamp, {2}));
  }

  // The timestamps that entered the socket's buffer: video as they are, audio as -t - 1.
  std::vector<int64_t> streamed() {
    std::vector<int64_t> out;
    for (const auto& frame : session_->streamSocket()->buffer()->list()) {
      auto t = static_cast<int64_t>(frame->timestamp);
      out.push_back(std::dynamic_pointer_cast<LFAudioFrame>(frame) ? -t - 1 : t);
    }
    return out;
  }

  std::shared_ptr<FakeEncoders> encoders_ = std::make_shared<FakeEncoders>();
  std::shared_ptr<test::RecordingView> view_ = std::make_shared<test::RecordingView>();
};

// The capture type follows the audio setting: no audio at 0 or below, AAC from 1.
TEST(CaptureTypeTest, FollowsTheAudioSetting) {
  const std::tuple<int64_t, int64_t, bool> cases[] = {
      {0, 2, false}, {-1, 2, false}, {1, 3, true}, {2, 3, true}};
  for (auto [audioFormat, mask, audio] : cases) {
    EXPECT_EQ(captureTypeForAudioFormat(audioFormat), mask) << audioFormat;
    EXPECT_EQ(captureTypeHasAudio(mask), audio) << audioFormat;
    EXPECT_TRUE(captureTypeHasVideo(mask)) << audioFormat;
  }
}

TEST_F(LiveSessionTest, CreationNeedsTheConfigurationsItsCaptureTypeUses) {
  auto info = test::makeStreamInfo();
  auto errorOf = [&](std::shared_ptr<LFLiveAudioConfiguration> audio,
                     std::shared_ptr<LFLiveVideoConfiguration> video, int64_t type) {
    try {
      OXLiveSession::create(audio, video, type);
    } catch (const InitError& e) {
      EXPECT_EQ(e.name(), "OXLiveSession init error");
      return e.reason();
    }
    return std::string("none");
  };
  auto audio = info->audioConfiguration;
  auto video = info->videoConfiguration;
  EXPECT_EQ(errorOf(nullptr, video, 3), "audioConfiguration is nil ");
  EXPECT_EQ(errorOf(nullptr, video, kInputMaskAudio), "audioConfiguration is nil ");
  EXPECT_EQ(errorOf(audio, nullptr, kInputMaskVideo), "videoConfiguration is nil ");
  EXPECT_EQ(errorOf(nullptr, video, kCaptureMaskVideo), "none");
  EXPECT_TRUE(OXLiveSession::create(audio, nullptr, kCaptureMaskAudio)->deviceChanged());
}

TEST_F(LiveSessionTest, WithAudioAndVideoNothingPassesBeforeAKeyFrameFollowsTheFirstAudio) {
  makeSession(kCaptureMaskDefault);
  encoderGivesVideo(5000, true);  // before any audio: lost
  socketReports(LiveStreamState::Connected);
  encoderGivesVideo(5001, true);   // still before any audio
  encoderGivesAudio(5010);         // audio, but no key frame behind it yet
  encoderGivesVideo(5020, false);  // not a key frame
  encoderGivesVideo(5033, true);   // aligned from here: the reference time
  encoderGivesAudio(5040);
  encoderGivesVideo(5066, false);
  EXPECT_EQ(streamed(), (std::vector<int64_t>{0, -8, 33}));
}

// The audio and the video encoder threads meet where the first frame sets
// the reference: the audio frame gets in while the key frame is about to set
// it. One of them sets it, and both are stamped against that one.
TEST_F(LiveSessionTest, FramesMeetingAtTheFirstStampShareOneReference) {
#ifndef OXELO_QUEUE_CHECKS
  GTEST_SKIP() << "the meeting point is reachable in the test builds only";
#else
  makeSession(kCaptureMaskDefault);
  socketReports(LiveStreamState::Connected);
  encoderGivesAudio(5010);  // opens the alignment; no key frame yet
  session_->setReferenceClaimHookForTesting([this] { encoderGivesAudio(5040); });
  encoderGivesVideo(5033, true);
  // The audio frame set the reference: the key frame is 7 ms before it.
  EXPECT_EQ(streamed(), (std::vector<int64_t>{-1, -7}));
#endif
}

// With video only every frame passes from the first, key frame or not.
TEST_F(LiveSessionTest, WithVideoOnlyTimestampsStartAtZeroOnEachConnection) {
  makeSession(kCaptureMaskVideo);
  socketReports(LiveStreamState::Connected);
  encoderGivesVideo(1000, false);
  encoderGivesVideo(1100, true);
  socketReports(LiveStreamState::Stopped);
  EXPECT_FALSE(session_->uploading());
  encoderGivesVideo(3000, true);  // between connections: discarded
  socketReports(LiveStreamState::Connected);
  socketReports(LiveStreamState::Connected);  // no change of flags, but reported
  encoderGivesVideo(5000, true);
  EXPECT_EQ(streamed(), (std::vector<int64_t>{0, 100, 0}));
  EXPECT_EQ(view_->states, (std::vector{LiveStreamState::Connected, LiveStreamState::Stopped,
                                        LiveStreamState::Connected, LiveStreamState::Connected}));
}

// Pictures of the camera and pushed ones are encoded only while uploading,
// stamped with the media clock (a pushed picture keeps its own time).
TEST_F(LiveSessionTest, CaptureIsEncodedOnlyWhileUploading) {
  makeSession(kCaptureMaskDefault | kInputMaskVideo);
  auto capture = session_->videoCapture();
  ASSERT_TRUE(capture);
  auto picture = PixelBuffer::create(16, 16);
  picture->setPresentationTime(99.5);
  auto deliver = [&] {
    session_->captureOutput(*capture, PixelBuffer::create(16, 16), nullptr);
    session_->pushVideo(picture);
    session_->pushAudio(Bytes(100));
  };
  main_.clock().set(1000.0);
  deliver();
  EXPECT_TRUE(encoders_->videos[0]->encoded.empty());
  EXPECT_EQ(encoders_->audios[0]->bytes, 0u);
  socketReports(LiveStreamState::Connected);
  main_.clock().set(1234.5678);
  deliver();
  EXPECT_EQ(encoders_->videos[0]->encoded, (std::vector<uint64_t>{1234567, 99500}));
  EXPECT_EQ(encoders_->audios[0]->bytes, 100u);
  EXPECT_EQ(session_->capturedPictureCount(), 2u);
  EXPECT_EQ(session_->encodedPictureCount(), 1u);
}

struct BitrateCase {
  const char* name;
  bool adaptive;
  bool connected;
  int64_t rate;
  BufferVerdict verdict;
  int64_t expected;
};

class AdaptiveBitrateTest : public LiveSessionTest,
                            public testing::WithParamInterface<BitrateCase> {};

TEST_P(AdaptiveBitrateTest, StepsStayWithinTheConfiguredBounds) {
  settings_.defaults->setBool(keys::adaptiveBitrate, GetParam().adaptive);
  makeSession(kCaptureMaskVideo);
  auto video = session_->videoConfiguration();
  video->setVideoBitRate(1000000);
  video->setVideoMaxBitRate(1500000);
  video->setVideoMinBitRate(500000);
  if (GetParam().connected) socketReports(LiveStreamState::Connected);
  encoders_->videos[0]->rate = GetParam().rate;
  session_->socketBufferStatus(nullptr, GetParam().verdict);
  EXPECT_EQ(encoders_->videos[0]->rate, GetParam().expected) << GetParam().name;
  EXPECT_EQ(video->videoBitRate(), 1000000u) << "the configured rate stays";
}

using B = BitrateCase;
constexpr auto kRaise = BufferVerdict::RaiseBitrate;
constexpr auto kLower = BufferVerdict::LowerBitrate;
INSTANTIATE_TEST_SUITE_P(
    Verdicts, AdaptiveBitrateTest,
    testing::Values(B{"RaiseByFivePercent", true, true, 1000000, kRaise, 1050000},
                    B{"RaisePastTheMaximumIsRefused", true, true, 1450000, kRaise, 1450000},
                    B{"RaiseToExactlyTheMaximum", true, true, 1428572, kRaise, 1500000},
                    B{"LowerByAFifth", true, true, 1000000, kLower, 800000},
                    B{"LowerPastTheMinimumIsRefused", true, true, 600000, kLower, 600000},
                    B{"NoChangeIsIgnored", true, true, 1000000, BufferVerdict::NoChange, 1000000},
                    B{"OffMeansNoStep", false, true, 1000000, kRaise, 1000000},
                    B{"NoStepBeforeTheConnection", true, false, 1000000, kLower, 1000000}),
    [](const auto& info) { return info.param.name; });

TEST_F(LiveSessionTest, PeerCloseStopsTheSessionBeforeTheViewHears) {
  makeSession(kCaptureMaskDefault);
  auto socket = session_->streamSocket();
  session_->socketDidError(socket.get(), LiveStreamError::ConnectionLost);
  main_.drain();
  EXPECT_EQ(view_->errors, std::vector{LiveStreamError::ConnectionLost});
  EXPECT_FALSE(encoders_->videos[0]->stopped) << "205 is the live view's to handle";

  session_->socketDidError(socket.get(), LiveStreamError::PeerClosed);
  main_.drain();
  EXPECT_EQ(view_->errors.back(), LiveStreamError::PeerClosed);
  EXPECT_TRUE(encoders_->videos[0]->stopped);
  EXPECT_TRUE(encoders_->audios[0]->stopped);
  EXPECT_NE(session_->streamSocket(), socket) << "a later start gets a new socket";
  session_->startLive();
  EXPECT_EQ(encoders_->videos.size(), 2u) << "and new encoders";
}

TEST_F(LiveSessionTest, StatisticsWhenAskedAndHostCommandsForTheSessionItself) {
  makeSession(kCaptureMaskVideo);
  session_->socketDebug(nullptr, LFLiveDebug{});
  main_.drain();
  EXPECT_EQ(view_->debugInfos, 0);
  session_->setShowDebugInfo(true);
  session_->socketDebug(nullptr, LFLiveDebug{});
  bool dimSeen = false;
  auto watch = session_->dimProperty().observe([&](bool, bool now) { dimSeen = now; });
  session_->socketClientCommand(nullptr, {wire::kHostDim, 1, 0});
  session_->socketClientCommand(nullptr, {wire::kHostRecording, 7, 0});
  session_->socketClientCommand(nullptr, {wire::kHostFocusPoint, 255, 0});
  main_.drain();
  EXPECT_EQ(view_->debugInfos, 1);
  EXPECT_TRUE(dimSeen);
  EXPECT_TRUE(session_->statusSource()->dim()) << "the status block tells the host";
  EXPECT_TRUE(session_->recording());
  EXPECT_EQ(view_->focus, std::make_pair(1.0, 0.0));
}

TEST_F(LiveSessionTest, RequestsToTheHostTravelOnTheHandedOverConnection) {
  auto connection = test::connectLoopback(main_.main());
  makeSession(kCaptureMaskVideo);
  session_->streamSocket()->setCarrier(connection.carrier);
  send_->runPending();
  test::peer::receive(connection.host, wire::kInfoPacketSize);
  session_->remoteRecord(true);
  session_->remoteSnapshot();
  EXPECT_EQ(test::peer::receive(connection.host, 24),
            test::cat({test::recordStartCommand(), test::snapshotCommand()}));
}

// Three virtual cameras: back wide angle (the first back camera), front, back ultra wide.
class LiveSessionCameraTest : public LiveSessionTest {
 protected:
  void SetUp() override {
    CameraSystem::setCurrent(
        test::camerasFromJson({{"cameras",
                                {test::cameraJson("wide", "back", {{{1280, 720}, 30}}),
                                 test::cameraJson("wide", "front", {{{1280, 720}, 30}}),
                                 test::cameraJson("ultraWide", "back", {{{1280, 720}, 30}})}}}));
  }
  void hostSends(uint32_t command, int32_t p1) {
    session_->socketClientCommand(nullptr, {command, p1, 0});
    main_.drain();
  }
};

TEST_F(LiveSessionCameraTest, RunningStartsAndStopsTheCameraAndTheRateReachesTheInfo) {
  test::expectGlContext();
  makeSession(kCaptureMaskVideo);
  // Asked for 60; the cameras offer 30 at most.
  session_->videoConfiguration()->setVideoMaxFrameRate(60);
  session_->videoConfiguration()->setVideoFrameRate(60);
  session_->setRunning(true);
  auto capture = session_->videoCapture();
  ASSERT_TRUE(capture && capture->videoCamera());
  EXPECT_TRUE(capture->videoCamera()->isRunning());
  session_->setRunning(false);
  EXPECT_FALSE(capture->videoCamera()->isRunning());
  // The info packet tells the rate the camera really runs at.
  session_->initStreamInfo(std::make_shared<LFLiveStreamInfo>());
  EXPECT_EQ(session_->streamInfo()->videoConfiguration->videoFrameRate(), 30u);
}

// Command 34 with 0 turns the camera round through the session (the next
// key frame carries a capability block); another value picks a camera by
// index without the session, so the flag stays. The kind on the wire follows.
struct CameraStep {
  int32_t p1;
  int64_t position;
  std::string deviceType;
  uint32_t kind;
  bool deviceChanged;
};

TEST_F(LiveSessionCameraTest, ChoosingACameraSwitchesItAndTheBlocksFollow) {
  makeSession(kCaptureMaskDefault);
  ASSERT_TRUE(session_->videoCapture()->videoCamera());
  EXPECT_EQ(capabilityBlock().cameraKind, 7u);  // any other back camera
  std::vector<int64_t> positions;
  auto watch = session_->captureDevicePositionProperty().observe(
      [&](int64_t, int64_t now) { positions.push_back(now); });
  // Turning round goes from the back wide angle to the front, from the back
  // ultra wide to the back wide angle, from the front to the back ultra wide.
  const CameraStep steps[] = {
      {0, 2, device_type::kWideAngle, 0, true},   // round: to the front
      {2, 1, device_type::kUltraWide, 3, false},  // index 1: ultra wide
      {0, 1, device_type::kWideAngle, 7, true},   // round: to the wide angle
      {1, 2, device_type::kWideAngle, 0, false},  // index 0: front
      {0, 1, device_type::kUltraWide, 3, true},   // round: to the back
      {3, 1, device_type::kWideAngle, 7, false},  // index 2: the back wide angle
      {6, 1, device_type::kUltraWide, 3, false},  // index (6 - 1) mod 4 = 1
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(testing::Message() << "step with P1 " << step.p1 << " to " << step.deviceType);
    session_->setDeviceChanged(false);
    hostSends(wire::kHostChooseCamera, step.p1);
    EXPECT_EQ(session_->captureDevicePosition(), step.position);
    EXPECT_EQ(session_->captureDeviceType(), step.deviceType);
    EXPECT_EQ(capabilityBlock().cameraKind, step.kind);
    EXPECT_EQ(session_->deviceChanged(), step.deviceChanged);
  }
  EXPECT_EQ(positions, (std::vector<int64_t>{2, 1})) << "told when the session turns the camera";
}

TEST_F(LiveSessionCameraTest, MirrorCommandReachesTheCaptureAndTheStatusBlock) {
  makeSession(kCaptureMaskVideo);
  auto capture = session_->videoCapture();
  EXPECT_TRUE(statusBlock().session.mirror) << "a capture mirrors from the start";
  std::vector<bool> seen;
  auto watch = session_->mirrorProperty().observe([&](bool, bool now) { seen.push_back(now); });
  hostSends(wire::kHostMirror, 0);
  EXPECT_FALSE(capture->mirror());
  EXPECT_FALSE(statusBlock().session.mirror);
  hostSends(wire::kHostMirror, 5);
  EXPECT_TRUE(session_->mirror());
  EXPECT_TRUE(statusBlock().session.mirror);
  EXPECT_EQ(seen, (std::vector<bool>{false, true}));
}

// The levels reach the one-pass filter standing in the chain, notified with
// the capture's value.
TEST_F(LiveSessionCameraTest, BeautyLevelsReachTheFilterInTheChain) {
  makeSession(kCaptureMaskVideo);
  auto capture = session_->videoCapture();
  session_->setRunning(true);
  session_->setBeautyMethod(2);
  session_->setBeautyFace(true);
  ASSERT_TRUE(capture->beautyFilter());
  std::vector<double> seen;
  auto watchBeauty =
      session_->beautyLevelProperty().observe([&](double, double now) { seen.push_back(now); });
  auto watchBright =
      session_->brightLevelProperty().observe([&](double, double now) { seen.push_back(now); });
  session_->setBeautyLevel(0.9);
  session_->setBrightLevel(0.2);
  EXPECT_EQ(
      std::pair(capture->beautyFilter()->beautyLevel(), capture->beautyFilter()->brightLevel()),
      std::pair(0.9, 0.2));
  EXPECT_EQ(std::pair(session_->beautyLevel(), session_->brightLevel()), std::pair(0.9, 0.2));
  EXPECT_EQ(seen, (std::vector<double>{0.9, 0.2}));
}

}  // namespace
}  // namespace oxelo
