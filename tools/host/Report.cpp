#include "tools/host/Report.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace oxelo::host {

namespace {

nlohmann::json controlFlagsJson(const wire::ControlFlags& f) {
  return {{"manual", f.manual},
          {"locked", f.locked},
          {"custom", f.custom},
          {"device_mode", f.deviceMode}};
}

nlohmann::json countsJson(const StreamCounts& c) {
  return {{"packets", c.packets},
          {"info_packets", c.infoPackets},
          {"video_sequence_headers", c.videoSequenceHeaders},
          {"key_frames", c.keyFrames},
          {"inter_frames", c.interFrames},
          {"audio_sequence_headers", c.audioSequenceHeaders},
          {"audio_frames", c.audioFrames},
          {"status_blocks", c.statusBlocks},
          {"capability_blocks", c.capabilityBlocks},
          {"phone_commands", c.phoneCommands},
          {"stop_notices", c.stopNotices}};
}

void appendUtf8(std::string& out, uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | cp >> 6);
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | cp >> 12);
    out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | cp >> 18);
    out += static_cast<char>(0x80 | (cp >> 12 & 0x3F));
    out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

}  // namespace

const char* runEndName(RunEnd end) {
  switch (end) {
    case RunEnd::notConnected:
      return "not_connected";
    case RunEnd::phone:
      return "phone";
    case RunEnd::duration:
      return "duration";
    case RunEnd::error:
      return "error";
  }
  return "?";
}

std::string utf8FromUtf16(const std::u16string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const uint32_t unit = text[i];
    const bool high = unit >= 0xD800 && unit < 0xDC00;
    const bool low = unit >= 0xDC00 && unit < 0xE000;
    if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
      appendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (text[i + 1] - 0xDC00));
      ++i;
    } else if (high || low) {
      appendUtf8(out, 0xFFFD);
    } else {
      appendUtf8(out, unit);
    }
  }
  return out;
}

nlohmann::json settingsJson(const handshake::VideoSettings& s) {
  return {{"width", s.width},
          {"height", s.height},
          {"fps", s.fps},
          {"portrait", s.portrait},
          {"quality", s.quality},
          {"encoder", s.encoder},
          {"audio_format", s.audioFormat}};
}

nlohmann::json infoJson(const wire::InfoPacket& info) {
  nlohmann::json sizes = nlohmann::json::array();
  for (const auto& s : info.videoSizes) sizes.push_back({s.width, s.height});
  return {{"width", info.width},
          {"height", info.height},
          {"frame_rate", info.frameRate},
          {"video_bit_rate", info.videoBitRate},
          {"video_encoder", info.videoEncoder},
          {"audio_sample_rate", info.audioSampleRate},
          {"audio_channels", info.audioChannels},
          {"audio_bit_rate", info.audioBitRate},
          {"device_name", utf8FromUtf16(info.deviceName)},
          {"video_sizes", std::move(sizes)},
          {"frame_rates", info.frameRates},
          {"hevc_decode_supported", info.hevcDecodeSupported}};
}

nlohmann::json statusJson(const wire::StatusBlock& s) {
  return {{"session",
           {{"beauty", s.session.beauty},
            {"mirror", s.session.mirror},
            {"dim", s.session.dim},
            {"torch", s.session.torch},
            {"aeaf_lock", s.session.aeafLock}}},
          {"exposure", s.exposure},
          {"exposure_flags", controlFlagsJson(s.exposureFlags)},
          {"temperature", s.temperature},
          {"white_balance_flags", controlFlagsJson(s.whiteBalanceFlags)},
          {"lens_position", s.lensPosition},
          {"focus_flags", controlFlagsJson(s.focusFlags)},
          {"iso", s.iso},
          {"bias", s.bias},
          {"zoom", s.zoom},
          {"battery", s.battery}};
}

nlohmann::json capabilityJson(const wire::CapabilityBlock& c) {
  return {{"camera_kind", c.cameraKind},
          {"exposure_min", c.exposureMin},
          {"exposure_max", c.exposureMax},
          {"exposure_capabilities", c.exposureCapabilities},
          {"temperature_min", c.temperatureMin},
          {"temperature_max", c.temperatureMax},
          {"white_balance_capabilities", c.whiteBalanceCapabilities},
          {"lens_min", c.lensMin},
          {"lens_max", c.lensMax},
          {"focus_capabilities", c.focusCapabilities},
          {"iso_min", c.isoMin},
          {"iso_max", c.isoMax},
          {"iso_capability", c.isoCapability},
          {"bias_min", c.biasMin},
          {"bias_max", c.biasMax},
          {"bias_capability", c.biasCapability},
          {"zoom_min", c.zoomMin},
          {"zoom_max", c.zoomMax},
          {"zoom_capabilities", c.zoomCapabilities}};
}

nlohmann::json streamJson(const StreamChecker& stream) {
  nlohmann::json blocks = nlohmann::json::array();
  for (const auto& arrival : stream.statusBlocks()) {
    nlohmann::json one = statusJson(arrival.status);
    one["after_commands"] = arrival.commandsBefore;
    blocks.push_back(std::move(one));
  }
  nlohmann::json commands = nlohmann::json::array();
  for (const auto& c : stream.phoneCommands()) {
    nlohmann::json one = {{"command", c.command}};
    if (c.parameter) one["parameter"] = *c.parameter;
    commands.push_back(std::move(one));
  }
  return {
      {"info", stream.info() ? infoJson(*stream.info()) : nlohmann::json(nullptr)},
      {"counts", countsJson(stream.counts())},
      {"first_packets", stream.firstPackets()},
      {"last_status",
       stream.lastStatus() ? statusJson(*stream.lastStatus()) : nlohmann::json(nullptr)},
      {"last_capability", stream.lastCapability() ? capabilityJson(*stream.lastCapability())
                                                  : nlohmann::json(nullptr)},
      {"status_blocks", std::move(blocks)},
      {"phone_commands", std::move(commands)},
      {"order_errors", stream.orderErrors()},
  };
}

nlohmann::json buildReport(const ReportInput& input) {
  const HostSession& session = *input.session;
  const HandshakeSeen& seen = session.seen();
  nlohmann::json handshake = {
      {"complete", input.connected && session.handshakeComplete()},
      {"hello_long", seen.helloLong},
      {"hello_short", seen.helloShort},
      {"host_info_sent", seen.hostInfoSent},
      {"settings_sent", seen.settingsSent},
      {"start_sent", seen.startSent},
      {"settings_answer", nullptr},
  };
  if (seen.settingsAnswer) handshake["settings_answer"] = settingsJson(*seen.settingsAnswer);
  nlohmann::json sent = nlohmann::json::array();
  for (const auto& c : input.commandsSent) {
    sent.push_back({{"at", c.at}, {"command", c.command}, {"p1", c.p1}, {"p2", c.p2}});
  }
  nlohmann::json report = {
      {"mode", modeName(input.mode)},
      {"connected", input.connected},
      {"ended_by", runEndName(input.end)},
      {"handshake", std::move(handshake)},
      {"stream", streamJson(session.stream())},
      {"commands_sent", std::move(sent)},
      {"end_command", input.endCommand ? nlohmann::json(*input.endCommand) : nullptr},
      {"errors", session.errors()},
  };
  if (input.recording) {
    const auto& r = *input.recording;
    report["recording"] = {
        {"path", r.path},
        {"container", r.container},
        {"video_codec", r.videoCodec},
        {"width", r.width},
        {"height", r.height},
        {"video_frames", r.videoFrames},
        {"audio_codec", r.audioCodec},
        {"sample_rate", r.sampleRate},
        {"channels", r.channels},
        {"audio_frames", r.audioFrames},
        {"duration", r.duration},
    };
    for (const auto& e : r.errors) report["errors"].push_back("recording: " + e);
  }
  return report;
}

bool writeReportFile(const std::string& path, const nlohmann::json& report, std::string& error) {
  std::ofstream out(path, std::ios::trunc);
  if (out) out << report.dump(2) << '\n';
  out.close();
  if (out) return true;
  error = "cannot write the report to '" + path + "': " + std::strerror(errno);
  return false;
}

}  // namespace oxelo::host
