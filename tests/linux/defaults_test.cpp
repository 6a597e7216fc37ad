#include "platform/linux/JsonDefaults.h"

#include "linux/Helpers.h"
#include "platform/linux/LinuxFiles.h"

namespace tovi {
namespace {

class RealDefaults : public ::testing::Test {
 protected:
  TemporaryFolder home;
  LinuxFiles files;
  std::string path = defaultsPath(home.path());
  JsonDefaults defaults{files, path};
};

TEST_F(RealDefaults, ValuesSurviveAndEveryProcessSeesTheLatest) {
  EXPECT_EQ(defaults.number("openDraw"), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(home / "Library")) << "reading made folders";
  defaults.set("openDraw", 6.25);
  defaults.set("launchedBefore", true);
  const std::map<std::string, double> effects{{"slow", 1.5}, {"gr\xC3\xBC\xC3\x9F", -2}};
  defaults.set("powerEffects2", effects);
  defaults.set("powerUnclear", std::vector<std::string>{"a", ""});

  JsonDefaults other{files, path};
  EXPECT_EQ(other.number("openDraw"), 6.25);
  EXPECT_EQ(other.flag("launchedBefore"), true);
  EXPECT_EQ(other.numbers("powerEffects2"), effects);
  EXPECT_EQ(other.strings("powerUnclear"), (std::vector<std::string>{"a", ""}));
  other.set("openDraw", 7.0);
  EXPECT_EQ(defaults.number("openDraw"), 7.0) << "a change of another process wasn't seen";
  defaults.set("closedDraw", 2.0);
  EXPECT_EQ(other.number("openDraw"), 7.0) << "a stale copy was written back";
  const auto before = files.status(path)->inode;
  defaults.set("closedDraw", 2.0);
  EXPECT_EQ(files.status(path)->inode, before) << "what stands already is not written again";
}

TEST_F(RealDefaults, AValueOfAnotherTypeIsAbsentAndUnknownKeysAreKept) {
  put(path, R"({"n": 1, "b": true, "o": {"x": 1, "y": "z"}, "a": ["s", 2], "t": "text", "later": {"deep": [1]}})");
  EXPECT_EQ(defaults.number("b"), std::nullopt);
  EXPECT_EQ(defaults.flag("n"), std::nullopt);
  EXPECT_EQ(defaults.numbers("o"), std::nullopt);
  EXPECT_EQ(defaults.strings("a"), std::nullopt);
  defaults.set("n", 2.0);
  EXPECT_NE(contents(path).find("\"deep\""), std::string::npos);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(std::filesystem::path(path).parent_path()), {}), 1);
}

TEST_F(RealDefaults, ABrokenFileCountsAsEmptyAndIsReplaced) {
  const std::string deep = "{\"a\":" + std::string(100'000, '[') + std::string(100'000, ']') + "}";
  for (const std::string& broken : {std::string(), std::string("{\"n\": "), std::string("[1]"), std::string("null"),
                                    std::string("\xff\xfe"), deep}) {
    put(path, broken);
    EXPECT_EQ(defaults.number("n"), std::nullopt) << broken.substr(0, 20);
    defaults.set("n", 3.0);
    EXPECT_EQ(defaults.number("n"), 3.0) << broken.substr(0, 20);
    EXPECT_EQ(JsonDefaults(files, path).number("n"), 3.0) << broken.substr(0, 20);
  }
}

TEST_F(RealDefaults, WhatCannotBeWrittenOrReadBreaksNothing) {
  put(home / "Library", "a file where a folder should be");
  defaults.set("n", 1.0);
  EXPECT_EQ(defaults.number("n"), std::nullopt);
  std::filesystem::remove(home / "Library");
  defaults.set("k\xff", 1.0);
  defaults.set("n", 2.0);
  EXPECT_EQ(defaults.number("n"), 2.0) << "a name that JSON can't hold";
  std::filesystem::resize_file(path, std::uintmax_t{65} << 20);  // more than is ever read
  defaults.set("n", 1.0);
  EXPECT_EQ(std::filesystem::file_size(path), std::uintmax_t{65} << 20) << "what could not be read was thrown away";
}

}  // namespace
}  // namespace tovi
