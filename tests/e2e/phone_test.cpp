// A phone, a relay on loopback, and the built program.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "e2e/Stage.h"
#include "relay/LoopbackRelay.h"
#include "remote/RemoteCrypto.h"

namespace tovi::e2e {
namespace {

constexpr char kKey[] = "AAcOFRwjKjE4P0ZNVFtiaXB3foWMk5qhqK-2vcTL0tk";

double unixNow() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

class EndToEndPhone : public testing::Test {
 protected:
  LoopbackRelay relay;
  Stage stage;
  SecretKey key{*RemoteCrypto::b64decode(kKey)};
  RemoteCrypto::Topics topics = RemoteCrypto::topics(key);
  int ids = 0;

  EndToEndPhone() {
    for (const char* name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"}) ::unsetenv(name);
    writeFile(stage.state() / "remote.json",
              Json{{"enabled", true}, {"key", kKey}, {"server", relay.url()}, {"panelUrl", ""}}.dump());
  }

  std::string sealed(const std::string& cmd, const Json& args, double clock = unixNow()) {
    const Json inner{{"n", "n" + std::to_string(++ids)}, {"cmd", cmd}, {"args", args}, {"t", clock}};
    return *RemoteCrypto::seal(inner.dump(), key, topics.cmd);
  }
  std::vector<Json> replies() {
    std::vector<Json> found;
    for (const auto& message : relay.on(topics.reply)) {
      const auto text = RemoteCrypto::open(message.body, key, topics.reply);
      found.push_back(text ? Json::parse(*text) : Json());
    }
    return found;
  }
  // The answer to one command; null if there is none.
  Json ask(const std::string& cmd, const Json& args = Json::object()) {
    relay.publish(topics.cmd, sealed(cmd, args));
    const std::string id = "n" + std::to_string(ids);
    Json answer;
    eventually(10s, [&] {
      for (const Json& reply : replies()) {
        if (reply.value("re", "") == id) answer = reply;
      }
      return !answer.is_null();
    });
    return answer;
  }
};

TEST_F(EndToEndPhone, GivesItsCommands) {
  const Process app = stage.startApp();
  ASSERT_TRUE(eventually(10s, [&] { return relay.streams() == 1; }));
  const std::pair<std::pair<const char*, Json>, const char*> rows[] = {
      {{"panel", {}}, ""},
      {{"mode", {{"mode", "off"}}}, ""},
      {{"set", {{"key", "quiet_minutes"}, {"value", 7}}}, ""},
      {{"wake_at", {{"time", "07:00"}}}, ""},
      {{"track", {{"agent", "nobody"}}}, "no agent nobody is running"},
      {{"status", {}}, "status isn't allowed from the phone"},
  };
  for (const auto& [command, error] : rows) {
    const Json reply = ask(command.first, command.second);
    ASSERT_TRUE(reply.is_object()) << command.first;
    EXPECT_EQ(reply["ok"], *error == '\0') << reply.dump();
    EXPECT_EQ(reply.value("error", ""), error);
    if (reply["ok"] == true) {
      EXPECT_TRUE(reply["panel"].contains("headline")) << reply.dump();
    }
  }
  EXPECT_EQ(ask("set", {{"key", "heat_guard"}, {"value", false}})["ok"], false);
  const Json config = stage.ask("config")["config"];
  EXPECT_EQ(config["quietMinutes"], 7);
  EXPECT_TRUE(config["heatGuard"]);
  EXPECT_TRUE(config.contains("wakeAt"));
}

TEST_F(EndToEndPhone, WakesTheLaptopOnceAlsoOverARestart) {
  {
    const Process app = stage.startApp();
    ASSERT_TRUE(eventually(10s, [&] { return relay.streams() == 1; }));
    relay.publish(topics.cmd, "not for us");
    const std::string wake = sealed("wake", {{"minutes", 30}});
    relay.publish(topics.cmd, wake);
    ASSERT_TRUE(eventually(10s, [&] { return stage.sleepIsOff(); }));
    relay.publish(topics.cmd, wake);
    ASSERT_TRUE(eventually(10s, [&] { return replies().size() == 2; }));
    EXPECT_EQ(replies()[1]["error"], "already handled");
    EXPECT_EQ(stage.status()["holds"].size(), 1u);
  }
  relay.publish(topics.cmd, sealed("mode", {{"mode", "off"}}));
  relay.publish(topics.cmd, sealed("mode", {{"mode", "on"}}, unixNow() - 400));
  const Process again = stage.startApp();
  ASSERT_TRUE(eventually(10s, [&] { return replies().size() == 4; })) << replies().size();
  EXPECT_EQ(replies()[2]["ok"], true);
  EXPECT_EQ(replies()[3]["error"], "too old or from the future (check the phone's clock)");
  EXPECT_EQ(stage.ask("config")["config"]["mode"], "off");
}

}  // namespace
}  // namespace tovi::e2e
