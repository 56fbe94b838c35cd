#include "shell/options/OptionsTexts.h"

namespace oxelo {

const std::vector<LiveText>& optionsTexts() {
  static const std::vector<LiveText> texts = {
      {"O_ORIENTATION", "Orientation", "方向"},
      {"O_VIDEO_SIZE", "Video size", "视频尺寸"},
      {"O_FRAME_RATE", "Frame rate", "帧率"},
      {"O_QUALITY", "Quality", "画质"},
      {"O_ENCODER", "Encoder", "编码器"},
      {"O_AUDIO", "Audio", "音频"},
      {"O_BACK_CAMERA", "Back camera", "后置相机"},
      {"O_GRID", "Grid", "网格"},
      {"O_AUTO_CONNECT", "Connect automatically", "自动连接"},
      {"O_LANGUAGE", "Language", "语言"},
      {"O_HELP", "Help", "帮助"},
      {"O_CONTACT", "Contact us", "联系我们"},
      {"O_SHARE", "Tell a friend", "推荐给朋友"},
      {"O_PORTRAIT", "Portrait", "竖屏"},
      {"O_LANDSCAPE", "Landscape", "横屏"},
      {"O_QUALITY_LOW", "Low", "低"},
      {"O_QUALITY_MEDIUM", "Medium", "中"},
      {"O_QUALITY_HIGH", "High", "高"},
      {"O_AUDIO_NONE", "No audio", "无音频"},
      {"O_AUDIO_MONO", "Mono", "单声道"},
      {"O_AUDIO_STEREO", "Stereo", "立体声"},
      {"O_CAMERA_SINGLE", "Single camera", "单摄像头"},
      {"O_RESTART_APP", "The new language is used when you start Oxelo again. Oxelo closes now.",
       "新的语言将在重新启动 Oxelo 后生效。Oxelo 现在关闭。"},
      {"S_RECOMMEND_CONTENT", "%@ turns your phone into a webcam for your computer.",
       "%@ 把您的手机变成电脑的网络摄像头。"},
      {"S_HELP",
       "<p>Oxelo turns your phone/tablet into a webcam for your computer.</p>"
       "<p>Start the Oxelo host on the computer, on the same network or with a USB cable, "
       "and Oxelo finds it and connects. Get the host from ##DOWNLOAD_URL##.</p><p>More help: ",
       "<p>Oxelo 把您的手机/平板变成电脑的网络摄像头。</p>"
       "<p>在同一网络中或通过 USB 数据线连接的电脑上启动 Oxelo 主机，Oxelo 会自动找到并连接。"
       "主机下载：##DOWNLOAD_URL##。</p><p>更多帮助："},
  };
  return texts;
}

std::string optionsText(std::string_view key, bool chinese) {
  for (const auto& text : optionsTexts())
    if (key == text.key) return chinese ? text.chinese : text.english;
  return std::string(key);
}

}  // namespace oxelo
