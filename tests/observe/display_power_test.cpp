#include "observe/DisplayPower.h"

#include <gtest/gtest.h>

#include "core/StateFiles.h"
#include "platform/simulated/MemoryLaptop.h"

namespace tovi {
namespace {

// What the system answers, and whether the panel is where it was wanted then.
struct Answers {
  const char* name;
  int begins;  // how many more transactions can begin
  int enable, complete;
  bool done;
};
constexpr Answers kAnswers[] = {
    {"no transaction", 0, 0, 0, false},
    {"switch refused", 9, 1004, 0, false},
    {"completion refused", 9, 0, 1004, false},
    {"no such display", 9, 1001, 0, true},
};

// Screens whose every answer is on order.
class OrderedDisplays final : public Displays {
 public:
  std::vector<Display> screens{{7, true}};
  bool hasSwitch = true, hasBrightness = true;
  Answers answers{"as it should be", 1000, 0, 0, true};
  int brightnessCode = 0;
  std::optional<float> level = 0.75F;
  std::string log;

  std::vector<Display> online() override { return screens; }
  bool canSwitch() override { return hasSwitch; }
  bool beginConfiguration() override {
    log += "begin ";
    return answers.begins-- > 0;
  }
  int setEnabled(std::uint32_t display, bool enabled) override {
    log += std::to_string(display) + (enabled ? "on " : "off ");
    return answers.enable;
  }
  int completeConfiguration() override {
    log += "complete ";
    return answers.complete;
  }
  void cancelConfiguration() override { log += "cancel "; }
  std::optional<float> brightness(std::uint32_t) override { return level; }
  bool canSetBrightness() override { return hasBrightness; }
  int setBrightness(std::uint32_t, float value) override {
    if (brightnessCode == 0) level = value;
    return brightnessCode;
  }
  bool sessionLocked() override { return false; }
  std::optional<int> passwordDelay() override { return std::nullopt; }
};

class Panel : public testing::Test {
 protected:
  MemoryLaptop laptop_;
  OrderedDisplays displays_;
  const Machine machine_ = withDisplays(laptop_.machine(), displays_);
  StateFiles state_{machine_};

  static Machine withDisplays(const Machine& m, Displays& displays) {
    return {m.surroundings, m.clock,     m.queue,    m.files,    m.fileEvents, m.processes, m.power, displays,
            m.assertions,   m.workspace, m.commands, m.defaults, m.broadcast,  m.notices,   m.http};
  }
  void put(const std::string& name, std::string_view content) { laptop_.files().put(state_.path(name), content); }
  void order(const Answers& answers) {
    displays_.answers = answers;
    displays_.log.clear();
  }
  bool turnOff() { return DisplayPower::turnOffBuiltIn(machine_, state_); }
  bool turnOn() { return DisplayPower::restoreBuiltIn(machine_, state_); }
  bool recordedOff() { return state_.exists("display-off"); }
  bool recordedDim() { return state_.exists("brightness-restore"); }
  void dim() { Brightness::dimForClosedLid(machine_, state_); }
};

TEST_F(Panel, IsRecordedBeforeItGoesDarkAndForgottenOnceItIsBack) {
  EXPECT_TRUE(turnOff());
  EXPECT_EQ(state_.read("display-off"), "7");
  EXPECT_EQ(displays_.log, "begin 7off complete ");
  displays_.screens.clear();  // the number in the file is all that is left of it
  displays_.log.clear();
  EXPECT_TRUE(turnOn());
  EXPECT_EQ(displays_.log, "begin complete begin 7on complete ");
  EXPECT_FALSE(recordedOff());
  EXPECT_TRUE(turnOn()) << "nothing to restore";
}

TEST_F(Panel, AFailedSwitchOffLeavesNoRecordUnlessOneWasThere) {
  for (const Answers& one : kAnswers) {
    for (const bool before : {false, true}) {
      order(one);
      laptop_.files().erase(state_.path("display-off"));
      if (before) put("display-off", "7");
      EXPECT_EQ(turnOff(), one.done) << one.name;
      EXPECT_EQ(recordedOff(), one.done || before) << one.name;
      const bool cancelled = displays_.log.find("cancel") != std::string::npos;
      EXPECT_EQ(cancelled, one.enable != 0) << one.name;
    }
  }
}

TEST_F(Panel, AFailedReturnKeepsTheRecord) {
  for (const Answers& one : kAnswers) {
    order(one);
    put("display-off", "7");
    EXPECT_EQ(turnOn(), one.done) << one.name;
    EXPECT_EQ(recordedOff(), !one.done) << one.name;
  }
  order({"none after the empty one", 1, 0, 0, false});
  put("display-off", "7");
  EXPECT_FALSE(turnOn());
  EXPECT_TRUE(recordedOff());
}

TEST_F(Panel, AGarbledRecordStillBringsBackAPanelThatIsListed) {
  for (const char* garbage : {"garbage", "", "-7", "7 8", "4294967296", "\xFF\xFE"}) {
    put("display-off", garbage);
    displays_.screens.clear();
    EXPECT_FALSE(turnOn()) << garbage;
    EXPECT_TRUE(recordedOff()) << garbage;
    displays_.screens = {{3, false}, {7, true}};
    EXPECT_TRUE(turnOn()) << garbage;
    EXPECT_FALSE(recordedOff()) << garbage;
  }
  put("display-off", " 9\n");
  displays_.screens.clear();
  displays_.log.clear();
  EXPECT_TRUE(turnOn());
  EXPECT_EQ(displays_.log, "begin complete begin 9on complete ");
}

TEST_F(Panel, WithoutSwitchOrPanelNothingHappensAndNoFileAppears) {
  displays_.screens = {{3, false}};
  EXPECT_FALSE(turnOff());
  dim();
  EXPECT_FALSE(recordedOff() || recordedDim());
  displays_.screens = {{7, true}};
  displays_.hasSwitch = false;
  displays_.hasBrightness = false;
  EXPECT_FALSE(turnOff());
  dim();
  EXPECT_FALSE(recordedOff() || recordedDim());
  put("display-off", "7");
  EXPECT_FALSE(turnOn());
  EXPECT_TRUE(recordedOff());
  EXPECT_EQ(displays_.log, "");
}

TEST_F(Panel, DimmingTwiceKeepsThePersonsBrightness) {
  dim();
  EXPECT_EQ(displays_.level, 0.0F);
  dim();
  EXPECT_EQ(state_.read("brightness-restore"), "0.75");
  Brightness::restore(machine_, state_);
  EXPECT_EQ(displays_.level, 0.75F);
  EXPECT_FALSE(recordedDim());
}

TEST_F(Panel, IsNotDimmedWhenTheWayBackIsUnknownOrCannotBeRecorded) {
  displays_.level.reset();
  dim();
  EXPECT_FALSE(recordedDim());
  displays_.level = 0.75F;
  laptop_.files().setFull(true);
  dim();
  EXPECT_EQ(displays_.level, 0.75F);
  laptop_.files().setFull(false);
  displays_.brightnessCode = 1;
  dim();
  EXPECT_FALSE(recordedDim()) << "nothing was dimmed";
}

TEST_F(Panel, ComesBackReadableWhateverTheFileSays) {
  const std::pair<const char*, float> cases[] = {
      {"0.02", 0.5F},  {"0.021", 0.021F}, {"1.7", 1}, {"", 0.5F},  {"nan", 0.5F},  {" 0.3\n", 0.3F},
      {"0.3.3", 0.5F}, {"-3", 0.5F},      {"inf", 1}, {"x", 0.5F}, {"\xFF", 0.5F},
  };
  for (const auto& [content, expected] : cases) {
    put("brightness-restore", content);
    Brightness::restore(machine_, state_);
    EXPECT_EQ(displays_.level, expected) << content;
    EXPECT_FALSE(recordedDim()) << content;
  }
}

TEST_F(Panel, AFailedReturnOfTheLightKeepsTheFile) {
  dim();
  displays_.brightnessCode = 1;
  Brightness::restore(machine_, state_);
  EXPECT_EQ(state_.read("brightness-restore"), "0.75");
  displays_.brightnessCode = 0;
  displays_.screens.clear();  // off altogether, so without a brightness for now
  Brightness::restore(machine_, state_);
  EXPECT_TRUE(recordedDim());
}

}  // namespace
}  // namespace tovi
