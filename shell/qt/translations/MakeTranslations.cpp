// Writes the translation sources of the window, oxelo_en.ts and
// oxelo_zh_CN.ts, into the folder it is given: the live screen's and the
// options screens' text tables and the pages' own few keys, each key as its
// message id (qsTrId). The build compiles them to .qm files and puts those
// into the program.
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "live/LiveTexts.h"
#include "shell/options/OptionsTexts.h"

namespace {

// The main page's keys.
const oxelo::LiveText kMainPageTexts[] = {
    {"M_HOST_ADDRESS", "Host address", "电脑地址"},
    {"M_INSTANCE", "Instance (1 to 16)", "实例（1 到 16）"},
    {"M_CONNECT", "Connect", "连接"},
    // The main screen: its state line, the manual sheet, the host chooser,
    // the buttons' names.
    {"M_SEARCHING", "Searching for computers…", "正在搜索电脑…"},
    {"M_NO_WIFI", "No Wi-Fi. Join the computer's network or plug in the USB cable.",
     "没有 Wi-Fi。请连接电脑所在的网络，或插上 USB 数据线。"},
    {"M_FOUND_OXELO", "Found %1", "发现 %1"},
    {"M_FOUND_OXELOS", "Found %1 computers", "发现 %1 台电脑"},
    {"M_USB_CONNECTED", "Connected by USB", "已通过 USB 连接"},
    {"M_CONNECT_TO", "Connect to", "连接到"},
    {"M_CLEAR_ALL", "Clear all", "全部清除"},
    {"M_INPUT_IP", "The computer's address, and which Oxelo on it (1 to 16):",
     "电脑的地址，以及连接其上的第几个 Oxelo（1 到 16）："},
    {"M_LAN_ALERT", "Oxelo needs the local network to find your computer.",
     "Oxelo 需要访问本地网络才能找到您的电脑。"},
    {"A_ERROR", "Error", "错误"},
    {"M_NEW_SEARCH", "New search", "重新搜索"},
    {"M_MANUAL", "Connect by address", "按地址连接"},
    {"M_OPTIONS", "Options", "设置"},
    {"M_HELP", "Help", "帮助"},
};

// The options pages' own keys: titles, group headers, the advanced rows'
// titles by their setting, and what sharing says.
const oxelo::LiveText kOptionsPageTexts[] = {
    {"O_OPTIONS", "Options", "选项"},
    {"O_ADVANCED", "Advanced", "高级"},
    {"O_DONE", "Done", "完成"},
    {"O_GROUP_VIDEO", "Video", "视频"},
    {"O_GROUP_ABOUT", "About", "关于"},
    {"O_SHARE_COPIED", "The recommendation is copied: paste it where you like.",
     "推荐内容已复制，可以粘贴到任何地方。"},
    {"O_ROW_showDebugInfo", "Show statistics", "显示统计信息"},
    {"O_ROW_adaptiveBitrate", "Adaptive bit rate", "自适应码率"},
    {"O_ROW_lowLightBoost", "Low light boost", "弱光增强"},
    {"O_ROW_smoothAutoFocus", "Smooth autofocus", "平滑自动对焦"},
    {"O_ROW_faceDrivenAEAF", "Exposure and focus on faces", "人脸驱动曝光和对焦"},
    {"O_ROW_echoCancellation", "Echo cancellation", "回声消除"},
    {"O_ROW_hdr", "HDR", "HDR"},
    {"O_ROW_colorspace", "Colour space", "色彩空间"},
};

std::string escaped(const char* text) {
  std::string out;
  for (const char* c = text; *c; ++c) {
    switch (*c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += *c;
    }
  }
  return out;
}

bool write(const std::string& path, const char* language, bool chinese) {
  std::ofstream out(path);
  out << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<!DOCTYPE TS>\n"
      << "<TS version=\"2.1\" language=\"" << language << "\">\n<context>\n    <name></name>\n";
  std::vector<oxelo::LiveText> texts = oxelo::liveTexts();
  texts.insert(texts.end(), std::begin(kMainPageTexts), std::end(kMainPageTexts));
  texts.insert(texts.end(), oxelo::optionsTexts().begin(), oxelo::optionsTexts().end());
  texts.insert(texts.end(), std::begin(kOptionsPageTexts), std::end(kOptionsPageTexts));
  for (const auto& t : texts) {
    out << "    <message id=\"" << escaped(t.key) << "\">\n"
        << "        <source>" << escaped(t.key) << "</source>\n"
        << "        <translation>" << escaped(chinese ? t.chinese : t.english)
        << "</translation>\n    </message>\n";
  }
  out << "</context>\n</TS>\n";
  return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUTPUT_DIR\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  if (!write(dir + "/oxelo_en.ts", "en", false) || !write(dir + "/oxelo_zh_CN.ts", "zh_CN", true)) {
    std::fprintf(stderr, "%s: cannot write into %s\n", argv[0], dir.c_str());
    return 1;
  }
  return 0;
}
