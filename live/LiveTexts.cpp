#include "live/LiveTexts.h"

#include <cstdlib>

namespace oxelo {

const std::vector<LiveText>& liveTexts() {
  static const std::vector<LiveText> texts = {
      {"V_AEAF_LOCK", "AE/AF LOCK", "AE/AF 锁定"},
      {"V_WIFI_GOOD", "The connection is good.", "网络连接良好。"},
      {"V_WIFI_BAD", "The connection is slow: the picture's quality has been lowered.",
       "网络连接较慢，画质已降低。"},
      {"A_OK", "OK", "确定"},
      {"A_CANCEL", "Cancel", "取消"},
      {"S_PERMISSION_TITLE", "Oxelo", "权限设置"},
      {"S_CAMERA_PERMISSION", "Oxelo needs to use your camera to record video, enable it now?",
       "Oxelo 需要访问您的相机以录制视频，现在启用吗？"},
      {"S_MIC_PERMISSION", "Oxelo needs to use your microphone to record audio, enable it now?",
       "Oxelo 需要访问您的麦克风以录制音频，现在启用吗？"},
      {"S_UNSUPPORTED_VIDEO_SIZE", "Unsupported video size!", "不支持的视频尺寸！"},
  };
  return texts;
}

std::string liveText(std::string_view key, bool chinese) {
  for (const auto& text : liveTexts())
    if (key == text.key) return chinese ? text.chinese : text.english;
  return std::string(key);
}

namespace {
// The first language of a LANGUAGE list or a locale name.
std::string firstLanguage() {
  for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (!value || !*value) continue;
    std::string first(value);
    return first.substr(0, first.find(':'));
  }
  return {};
}
}  // namespace

bool prefersChinese() {
  const std::string language = firstLanguage();
  return language.size() >= 2 && language.compare(0, 2, "zh") == 0 &&
         (language.size() == 2 || language[2] == '_' || language[2] == '-' || language[2] == '.');
}

}  // namespace oxelo
