// The host's packets of the greeting (16 host information, 17 start, 19 video
// settings) as the phone reads them, in pieces of any size over TCP or one
// frame each over USB; and the packet readers on their own, for both ends.
//
// Input: one byte that says how the rest arrives (FuzzSupport.h; bit 7: the
// USB carrier), then the host's bytes.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "discovery/ClientHandshake.h"
#include "fuzz/FuzzSupport.h"
#include "media/VideoSizeCatalogue.h"
#include "platform/camera/CameraSystem.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/Clock.h"
#include "platform/dispatch/MainQueue.h"
#include "tests/support/FakeCarrier.h"
#include "wire/HandshakePackets.h"

using namespace oxelo;
namespace hs = oxelo::handshake;
namespace fs = std::filesystem;

namespace {

struct Recorder final : ClientHandshakeDelegate {
  void handshakeDidReceiveHostInfo(ClientHandshake*, long long port,
                                   const std::string& name) override {
    OX_FUZZ_CHECK(port >= 0 && port <= 0xFFFFFFFFLL);
    OX_FUZZ_CHECK(name.size() < hs::kHostNameField + 1);
    OX_FUZZ_CHECK(name.find('\0') == std::string::npos);
  }
  void handshakeDidReceiveStart(ClientHandshake*) override { ++starts; }
  int starts = 0;
};

// The readers on their own: what they accept is the packet their builder
// writes, at exactly its size.
void checkReaders(fuzz::ByteSpan bytes) {
  if (auto s = hs::readVideoSettings(bytes.data(), bytes.size())) {
    auto built = hs::videoSettings(*s);
    OX_FUZZ_CHECK(std::equal(built.begin(), built.end(), bytes.begin()));
  }
  if (auto s = hs::readSettingsAnswer(bytes.data(), bytes.size())) {
    OX_FUZZ_CHECK(bytes.size() >= hs::kSettingsAnswerSize);
    OX_FUZZ_CHECK(s->width == wire::WireReader(bytes).u32LE(8));
  }
  if (auto info = hs::readHostInfo(bytes.data(), bytes.size())) {
    OX_FUZZ_CHECK(bytes.size() >= hs::kHostInfoSize);
    OX_FUZZ_CHECK(info->name.size() <= hs::kHostNameField);
    OX_FUZZ_CHECK(info->name.find('\0') == std::string::npos);
  }
}

fs::path workDirectory() {
  std::error_code ec;
  fs::path base =
      fs::is_directory("/dev/shm", ec) ? fs::path("/dev/shm") : fs::temp_directory_path();
  return base / ("oxelo-fuzz-handshake-" + std::to_string(::getpid()));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  // The test thread drives the main queue, as in the tests.
  static auto main = Queue::createDriven("main");
  MainQueue::set(main);
  static Queue::DrivingScope driving(*main);
  std::vector<std::shared_ptr<CaptureDevice>> devices;
  for (auto& spec : defaultVirtualCameras()) devices.push_back(makeVirtualCamera(std::move(spec)));
  CameraSystem::setCurrent(std::make_shared<CameraSystem>("virtual", std::move(devices)));
  VideoSizeCatalogue::shared().reloadVideoSizes();
  // Settings packets are stored and written out.
  UserDefaults::setStandard(std::make_shared<UserDefaults>(workDirectory()));
  std::atexit([] {
    UserDefaults::setStandard(nullptr);
    std::error_code ec;
    fs::remove_all(workDirectory(), ec);
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto in = fuzz::PiecedInput::of(data, size);
  checkReaders(in.bytes);

  auto recorder = std::make_shared<Recorder>();
  auto handshake = ClientHandshake::create(recorder);
  auto carrier =
      std::make_shared<test::FakeCarrier>(in.flag ? Carrier::Kind::usb : Carrier::Kind::tcp);
  handshake->attach(carrier);
  handshake->sendHello();
  in.forEachPiece([&](fuzz::ByteSpan piece) {
    carrier->receive(std::vector<uint8_t>(piece.begin(), piece.end()));
  });
  MainQueue::get()->runPending();
  // The two hellos, then one settings answer for each start.
  OX_FUZZ_CHECK(carrier->sent.size() == 2 + size_t(recorder->starts));
  for (size_t i = 2; i < carrier->sent.size(); ++i)
    OX_FUZZ_CHECK(carrier->sent[i].bytes->size() == hs::kSettingsAnswerSize);
  handshake->close();
  return 0;
}
