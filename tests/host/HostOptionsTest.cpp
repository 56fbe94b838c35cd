#include "tools/host/HostOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace oxelo::host {
namespace {

using handshake::VideoSettings;

struct SettingsCase {
  const char* name;
  const char* text;
  VideoSettings expected;  // width, height, fps, portrait, quality, encoder, audio
};

class SettingsTextTest : public testing::TestWithParam<SettingsCase> {};

TEST_P(SettingsTextTest, ReadsEverySuffix) {
  std::string error;
  auto settings = parseSettingsText(GetParam().text, error);
  ASSERT_TRUE(settings.has_value()) << error;
  EXPECT_EQ(*settings, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, SettingsTextTest,
    testing::Values(
        SettingsCase{"SizeAndRateAlone", "1280x720@30", {1280, 720, 30, 0, 1, 0, 1}},
        SettingsCase{"Portrait", "1920x1080@60:portrait", {1920, 1080, 60, 1, 1, 0, 1}},
        SettingsCase{"QualityLow", "640x480@15:q=0", {640, 480, 15, 0, 0, 0, 1}},
        SettingsCase{"QualityHigh", "640x480@15:q=2", {640, 480, 15, 0, 2, 0, 1}},
        SettingsCase{"EncoderHevc", "3840x2160@24:enc=hevc", {3840, 2160, 24, 0, 1, 1, 1}},
        SettingsCase{"EncoderH264", "3840x2160@24:enc=h264", {3840, 2160, 24, 0, 1, 0, 1}},
        SettingsCase{"AudioNone", "1280x720@30:audio=none", {1280, 720, 30, 0, 1, 0, 0}},
        SettingsCase{"AudioMono", "1280x720@30:audio=mono", {1280, 720, 30, 0, 1, 0, 1}},
        SettingsCase{"AudioStereo", "1280x720@30:audio=stereo", {1280, 720, 30, 0, 1, 0, 2}},
        SettingsCase{"AllInAnyOrder",
                     "1280x720@25:audio=stereo:enc=hevc:portrait:q=2",
                     {1280, 720, 25, 1, 2, 1, 2}}),
    [](const auto& info) { return std::string(info.param.name); });

struct BadSettingsCase {
  const char* name;
  const char* text;
};

class BadSettingsTextTest : public testing::TestWithParam<BadSettingsCase> {};

TEST_P(BadSettingsTextTest, IsRefusedWithAReason) {
  std::string error;
  EXPECT_FALSE(parseSettingsText(GetParam().text, error).has_value());
  EXPECT_FALSE(error.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, BadSettingsTextTest,
    testing::Values(BadSettingsCase{"Empty", ""}, BadSettingsCase{"NoRate", "1280x720"},
                    BadSettingsCase{"NoHeight", "1280@30"},
                    BadSettingsCase{"RateBeforeSize", "1280@30x720"},
                    BadSettingsCase{"ZeroWidth", "0x720@30"},
                    BadSettingsCase{"ZeroRate", "1280x720@0"},
                    BadSettingsCase{"NegativeHeight", "1280x-720@30"},
                    BadSettingsCase{"LettersInRate", "1280x720@3O"},
                    BadSettingsCase{"WidthBeyond32Bits", "4294967296x720@30"},
                    BadSettingsCase{"TrailingColon", "1280x720@30:"},
                    BadSettingsCase{"UnknownSuffix", "1280x720@30:hdr"},
                    BadSettingsCase{"PortraitWithValue", "1280x720@30:portrait=1"},
                    BadSettingsCase{"QualityNotANumber", "1280x720@30:q=high"},
                    BadSettingsCase{"QualityNegative", "1280x720@30:q=-1"},
                    BadSettingsCase{"QualityEmpty", "1280x720@30:q="},
                    BadSettingsCase{"UnknownEncoder", "1280x720@30:enc=vp9"},
                    BadSettingsCase{"EncoderAsNumber", "1280x720@30:enc=1"},
                    BadSettingsCase{"UnknownAudio", "1280x720@30:audio=5.1"},
                    BadSettingsCase{"SuffixTwice", "1280x720@30:q=1:q=2"}),
    [](const auto& info) { return std::string(info.param.name); });

ParsedCommandLine parse(std::vector<std::string> args) {
  return parseHostOptions(args, "this-machine");
}

TEST(HostOptionsTest, EachModeHasItsDefaults) {
  auto listen = parse({"listen"});
  ASSERT_EQ(listen.kind, ParsedCommandLine::Kind::run) << listen.text;
  EXPECT_EQ(listen.options.mode, HostMode::listen);
  EXPECT_EQ(listen.options.address, "0.0.0.0");
  EXPECT_EQ(listen.options.port, 5895);
  EXPECT_EQ(listen.options.name, "this-machine");
  EXPECT_FALSE(listen.options.settings.has_value());
  EXPECT_TRUE(listen.options.sendStart);
  EXPECT_FALSE(listen.options.duration.has_value());
  EXPECT_FALSE(listen.options.wait.has_value());
  EXPECT_TRUE(listen.options.reportPath.empty());

  auto call = parse({"call", "192.168.1.20"});
  ASSERT_EQ(call.kind, ParsedCommandLine::Kind::run) << call.text;
  EXPECT_EQ(call.options.mode, HostMode::call);
  EXPECT_EQ(call.options.address, "192.168.1.20");
  EXPECT_EQ(call.options.port, 5896);

  auto usb = parse({"usb"});
  ASSERT_EQ(usb.kind, ParsedCommandLine::Kind::run) << usb.text;
  EXPECT_EQ(usb.options.mode, HostMode::usb);
  EXPECT_EQ(usb.options.address, "127.0.0.1");
  EXPECT_EQ(usb.options.port, 5895);
}

TEST(HostOptionsTest, ReadsEveryOptionInBothSpellings) {
  auto r = parse({"listen", "--port", "5899", "--bind=127.0.0.1", "--name", "Desk PC",
                  "--settings=1920x1080@30:portrait", "--no-start", "--duration", "2.5",
                  "--wait=0.5", "--report", "/tmp/r.json"});
  ASSERT_EQ(r.kind, ParsedCommandLine::Kind::run) << r.text;
  EXPECT_EQ(r.options.port, 5899);
  EXPECT_EQ(r.options.address, "127.0.0.1");
  EXPECT_EQ(r.options.name, "Desk PC");
  ASSERT_TRUE(r.options.settings.has_value());
  EXPECT_EQ(*r.options.settings, (VideoSettings{1920, 1080, 30, 1, 1, 0, 1}));
  EXPECT_FALSE(r.options.sendStart);
  EXPECT_EQ(r.options.duration, 2.5);
  EXPECT_EQ(r.options.wait, 0.5);
  EXPECT_EQ(r.options.reportPath, "/tmp/r.json");

  auto call = parse({"call", "--port=6000", "10.0.0.7"});
  ASSERT_EQ(call.kind, ParsedCommandLine::Kind::run) << call.text;
  EXPECT_EQ(call.options.address, "10.0.0.7");
  EXPECT_EQ(call.options.port, 6000);
}

TEST(HostOptionsTest, HelpForTheProgramAndEachSubcommand) {
  auto program = parse({"--help"});
  EXPECT_EQ(program.kind, ParsedCommandLine::Kind::help);
  EXPECT_NE(program.text.find("listen"), std::string::npos);
  for (const char* mode : {"listen", "call", "usb"}) {
    auto help = parse({mode, "--help"});
    EXPECT_EQ(help.kind, ParsedCommandLine::Kind::help) << mode;
    EXPECT_NE(help.text.find(std::string("oxelo-host ") + mode), std::string::npos) << mode;
    EXPECT_NE(help.text.find("--settings"), std::string::npos) << mode;
  }
  // Help wins over an argument error elsewhere on the line.
  EXPECT_EQ(parse({"call", "--help"}).kind, ParsedCommandLine::Kind::help);
}

TEST(HostOptionsTest, ReadsCommandsAndTheEnd) {
  auto r = parse({"call", "10.0.0.7", "--duration", "5", "--command", "1.5 21",
                  "--command=2 18 6 -20", "--command", "0  33 1", "--end", "24"});
  ASSERT_EQ(r.kind, ParsedCommandLine::Kind::run) << r.text;
  EXPECT_EQ(r.options.commands,
            (std::vector<TimedCommand>{{1.5, 21, 0, 0}, {2, 18, 6, -20}, {0, 33, 1, 0}}));
  EXPECT_EQ(r.options.end, EndAction::peerClose);
  for (auto [text, action] :
       {std::pair{"close", EndAction::close}, std::pair{"25", EndAction::connectionLost},
        std::pair{"26", EndAction::restart}}) {
    auto e = parse({"usb", "--duration", "1", "--end", text});
    ASSERT_EQ(e.kind, ParsedCommandLine::Kind::run) << e.text;
    EXPECT_EQ(e.options.end, action) << text;
  }
  EXPECT_EQ(parse({"usb"}).options.end, EndAction::close);
}

TEST(HostOptionsTest, ListenAnswersProbesAndPublishesOnlyWhenAsked) {
  auto plain = parse({"listen"});
  EXPECT_FALSE(plain.options.answerProbes);
  EXPECT_FALSE(plain.options.publish);

  auto own = parse({"listen", "--port", "5899", "--answer-probes", "--publish"});
  ASSERT_EQ(own.kind, ParsedCommandLine::Kind::run) << own.text;
  EXPECT_TRUE(own.options.answerProbes);
  EXPECT_TRUE(own.options.probePorts.empty());  // the TCP port
  EXPECT_TRUE(own.options.publish);

  auto listed = parse({"listen", "--answer-probes=5895,5902,6000"});
  ASSERT_EQ(listed.kind, ParsedCommandLine::Kind::run) << listed.text;
  EXPECT_TRUE(listed.options.answerProbes);
  EXPECT_EQ(listed.options.probePorts, (std::vector<uint16_t>{5895, 5902, 6000}));

  auto help = parse({"listen", "--help"});
  EXPECT_NE(help.text.find("--answer-probes"), std::string::npos);
  EXPECT_NE(help.text.find("--publish"), std::string::npos);
}

struct BadLineCase {
  const char* name;
  std::vector<std::string> args;
};

class BadCommandLineTest : public testing::TestWithParam<BadLineCase> {};

TEST_P(BadCommandLineTest, IsAnErrorWithAMessage) {
  auto r = parse(GetParam().args);
  EXPECT_EQ(r.kind, ParsedCommandLine::Kind::error);
  EXPECT_FALSE(r.text.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, BadCommandLineTest,
    testing::Values(BadLineCase{"NoSubcommand", {}}, BadLineCase{"UnknownSubcommand", {"serve"}},
                    BadLineCase{"CallWithoutAddress", {"call", "--port", "5896"}},
                    BadLineCase{"TwoAddresses", {"call", "10.0.0.1", "10.0.0.2"}},
                    BadLineCase{"StrayArgument", {"listen", "extra"}},
                    BadLineCase{"UnknownOption", {"usb", "--fast"}},
                    BadLineCase{"MissingValue", {"listen", "--port"}},
                    BadLineCase{"PortNotANumber", {"listen", "--port", "http"}},
                    BadLineCase{"PortTooLarge", {"usb", "--port", "65536"}},
                    BadLineCase{"PortZeroToCall", {"call", "10.0.0.1", "--port", "0"}},
                    BadLineCase{"BindOnCall", {"call", "10.0.0.1", "--bind", "127.0.0.1"}},
                    BadLineCase{"BadBindAddress", {"listen", "--bind", "localhost"}},
                    BadLineCase{"WaitOnUsb", {"usb", "--wait", "1"}},
                    BadLineCase{"ZeroDuration", {"usb", "--duration", "0"}},
                    BadLineCase{"NegativeDuration", {"usb", "--duration", "-1"}},
                    BadLineCase{"DurationNotANumber", {"usb", "--duration", "1s"}},
                    BadLineCase{"BadSettings", {"usb", "--settings", "1280x720"}},
                    BadLineCase{"EmptyName", {"usb", "--name", ""}},
                    BadLineCase{"NoStartWithValue", {"usb", "--no-start=1"}},
                    BadLineCase{"CommandWithoutNumber", {"usb", "--command", "1.5"}},
                    BadLineCase{"CommandWithTooManyWords", {"usb", "--command", "1 18 6 20 7"}},
                    BadLineCase{"CommandAtNegativeTime", {"usb", "--command", "-1 21"}},
                    BadLineCase{"CommandNotANumber", {"usb", "--command", "1 zoom"}},
                    BadLineCase{"ParameterBeyond32Bits", {"usb", "--command", "1 18 6 4294967296"}},
                    BadLineCase{"CommandAfterTheDuration",
                                {"usb", "--duration", "2", "--command", "2 21"}},
                    BadLineCase{"EndWithoutDuration", {"usb", "--end", "24"}},
                    BadLineCase{"UnknownEnd", {"usb", "--duration", "1", "--end", "27"}},
                    BadLineCase{"AnswerProbesOnCall", {"call", "10.0.0.1", "--answer-probes"}},
                    BadLineCase{"PublishOnUsb", {"usb", "--publish"}},
                    BadLineCase{"PublishWithValue", {"listen", "--publish=yes"}},
                    BadLineCase{"ProbePortZero", {"listen", "--answer-probes=0"}},
                    BadLineCase{"ProbePortsTrailingComma", {"listen", "--answer-probes=5895,"}},
                    BadLineCase{"ProbePortNotANumber", {"listen", "--answer-probes=udp"}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo::host
