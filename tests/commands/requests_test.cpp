// Requests as they arrive from other processes, and the files of their replies.

#include <gtest/gtest.h>

#include "commands/Center.h"
#include "commands/Wire.h"

namespace tovi {
namespace {

class Requests : public testing::Test, protected Center {
 protected:
  // Every file below the home folder, so that a reply can't hide anywhere.
  std::vector<std::string> files(const std::string& folder = "/home") {
    std::vector<std::string> found;
    for (const std::string& name : laptop.files().list(folder).value_or(std::vector<std::string>{})) {
      const std::string path = folder + "/" + name;
      if (laptop.files().status(path)->kind == FileStatus::Kind::folder) {
        for (auto& below : files(path)) found.push_back(std::move(below));
      } else {
        found.push_back(path);
      }
    }
    return found;
  }

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
  send(R"({"id": "first", "cmd": "config"})");  // so that the folder is there
  laptop.advance(3);                            // and what the engine writes by itself
  const auto before = files();
  for (const std::string& id : {std::string("a/b"), std::string("../b"), std::string("a.b"), std::string(""),
                                std::string(65, 'a'), std::string("ä"), std::string("a b"), std::string("a\0b", 3)}) {
    send(Json{{"id", id}, {"cmd", "config"}}.dump());
  }
  for (const char* text : {R"({"cmd": "status"})", R"({"id": 5, "cmd": "config"})", R"({"id": "x"})",
                           R"({"id": "x", "cmd": ["config"]})", "[]", "7", "{", "", "\xff"}) {
    send(text);
  }
  laptop.advance(3);
  EXPECT_EQ(files(), before);
}

TEST_F(Requests, LongestGoodIdIsAnswered) {
  const std::string id = std::string(62, 'Z') + "-9";
  send(Json{{"id", id}, {"cmd", "config"}}.dump());
  EXPECT_TRUE(replyTo(id).has_value());
}

TEST_F(Requests, RepliesArePrivate) {
  send(R"({"id": "r1", "cmd": "config"})");
  EXPECT_EQ(laptop.files().status(state.path("replies"))->mode, 0700u);
  EXPECT_EQ(laptop.files().status(state.path("replies/r1.json"))->mode, 0600u);
}

TEST_F(Requests, ArgsThatAreNoObjectCountAsEmpty) {
  send(R"({"id": "r2", "cmd": "hold", "args": ["x"]})");
  const auto reply = replyTo("r2");
  ASSERT_TRUE(reply.has_value());
  EXPECT_EQ((*reply)["hold"]["reason"], "Asked to stay awake");
}

TEST_F(Requests, ArgsNestedWithoutEndOverflowNothing) {
  constexpr std::size_t kDeep = 200000;
  send(R"({"id": "deep", "cmd": "config", "args": )" + std::string(kDeep, '[') + std::string(kDeep, ']') + "}");
  send(R"({"id": "next", "cmd": "config"})");
  EXPECT_TRUE(replyTo("next").has_value());
}

TEST_F(Requests, LateReplyIsWrittenWhenItComes) {
  send(R"({"id": "r3", "cmd": "energy"})");
  EXPECT_FALSE(replyTo("r3"));
  laptop.advance(2);
  EXPECT_TRUE(replyTo("r3"));
}

TEST_F(Requests, CenterThatIsGoneMakesNoReply) {
  bool replied = false;
  for (const char* command : {"status", "energy"}) {
    center->handle(command, Json::object(), [&](const Json&) { replied = true; });
  }
  center.reset();
  laptop.advance(5);
  EXPECT_FALSE(replied);
  EXPECT_EQ(laptop.machine().broadcast.post("x"), Broadcast::Sent::nobodyListens);
}

TEST_F(Requests, ReplyWithBytesThatAreNoTextIsStillJson) {
  ask("hold", {{"reason",
                "a\xff"
                "b"}});
  send(R"({"id": "r4", "cmd": "status"})");
  laptop.advance(2);
  const auto reply = replyTo("r4");
  ASSERT_TRUE(reply.has_value());
  EXPECT_EQ((*reply)["holds"][0]["reason"],
            "a\xEF\xBF\xBD"
            "b");
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
