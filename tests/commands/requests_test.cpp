// Requests as they arrive from other processes, and the files of their replies.

#include <gtest/gtest.h>

#include "commands/Center.h"
#include "commands/Wire.h"

namespace tovi {
namespace {

class Requests : public testing::Test, protected Center {
 protected:
  void send(const std::string& text) {
    laptop.machine().broadcast.post(text);
    laptop.settle();
  }
  std::optional<Json> replyTo(const std::string& id) {
    const auto text = state.read("replies/" + id + ".json");
    return text ? json::parseObject(*text) : std::nullopt;
  }
};

TEST_F(Requests, WithoutAGoodIdGetNoReplyAnywhere) {
  const std::string longest = std::string(62, 'Z') + "-9";
  send(Json{{"id", longest}, {"cmd", "config"}}.dump());
  for (const std::string& id : {std::string("a/b"), std::string("../b"), std::string("a.b"), std::string(""),
                                std::string(65, 'a'), std::string("ä"), std::string("a b"), std::string("a\0b", 3)}) {
    send(Json{{"id", id}, {"cmd", "config"}}.dump());
  }
  for (const char* text : {R"({"cmd": "status"})", R"({"id": 5, "cmd": "config"})", R"({"id": "x"})",
                           R"({"id": "x", "cmd": ["config"]})", "[]", "7", "{", "", "\xff"}) {
    send(text);
  }
  send(R"({"id": "nul", "cmd": "config"})" + std::string("\0junk", 5));
  laptop.advance(3);
  EXPECT_EQ(laptop.files().list(state.path("replies")), std::vector<std::string>{longest + ".json"});
  EXPECT_FALSE(state.exists("b.json"));
  EXPECT_EQ(laptop.files().status(state.path("replies"))->mode, 0700u);
  EXPECT_EQ(laptop.files().status(state.path("replies/" + longest + ".json"))->mode, 0600u);
}

TEST_F(Requests, ArgsNestedWithoutEndOverflowNothing) {
  constexpr std::size_t kDeep = 200000;
  send(R"({"id": "deep", "cmd": "config", "args": )" + std::string(kDeep, '[') + std::string(kDeep, ']') + "}");
  send(R"({"id": "next", "cmd": "config"})");
  EXPECT_TRUE(replyTo("next").has_value());
}

TEST_F(Requests, CenterThatIsGoneMakesNoReply) {
  bool replied = false;
  for (const char* command : {"status", "energy", "measure", "power"}) {
    center->handle(command, Json::object(), [&](const Json&) { replied = true; });
  }
  center.reset();
  laptop.advance(20);
  EXPECT_FALSE(replied);
  EXPECT_EQ(laptop.machine().broadcast.post("x"), Broadcast::Sent::nobodyListens);
}

TEST_F(Requests, ReplyWithBytesThatAreNoTextIsStillJson) {
  ask("hold", {{"reason", "caf\xff"}});
  send(R"({"id": "r4", "cmd": "status"})");
  EXPECT_FALSE(replyTo("r4")) << "it takes its time";
  laptop.advance(2);
  EXPECT_EQ(replyTo("r4").value_or(Json())["holds"][0]["reason"], "caf\xEF\xBF\xBD");
}

TEST(Wire, AnythingButAnObjectIsAnEmptyOne) {
  EXPECT_EQ(Wire::json({{"b", 1}, {"a", 2}}), "{\n  \"a\": 2,\n  \"b\": 1\n}");
  EXPECT_EQ(Wire::compact({{"a", "\xff"}}), "{\"a\":\"\xEF\xBF\xBD\"}");
  for (const Json& value : {Json(5), Json("text"), Json(), Json::array()}) {
    EXPECT_EQ(Wire::json(value), "{}");
    EXPECT_EQ(Wire::compact(value), "{}");
  }
}

}  // namespace
}  // namespace tovi
