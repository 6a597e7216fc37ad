// The server that agents talk to: its messages, the commands that its tools become, whose holds it may end, and the
// lines on which it all travels.

#include "commands/MCPServer.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <map>

#include "commands/CLITexts.h"
#include "commands/Center.h"
#include "commands/LineService.h"
#include "commands/Wire.h"

namespace tovi {
namespace {

struct Sent {
  std::string command;
  Json args;
  double seconds = 0;
};

// A server whose commands are noted and answered with `reply`.
class MCP : public testing::Test {
 protected:
  std::vector<Sent> sent;
  Json reply{{"ok", true}, {"status", "Fine"}};
  MCPServer server{{.agent = 4711, .send = [this](const std::string& command, const Json& args, Seconds timeout) {
                      sent.push_back({command, args, timeout.count()});
                      return reply;
                    }}};

  Json ask(const std::string& message) {
    const auto line = server.answer(message);
    EXPECT_TRUE(line.has_value()) << message;
    return line ? json::parse(*line).value_or(Json()) : Json();
  }
  Json call(const std::string& tool, const Json& args) {
    return ask(
        Json{{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"}, {"params", {{"name", tool}, {"arguments", args}}}}
            .dump());
  }
};

TEST_F(MCP, RequestsAreAnsweredUnderTheirOwnId) {
  const std::string ping = R"("method": "ping")", empty = R"("result":{})";
  const auto wrong = [](int code, const std::string& text) {
    return R"("error":{"code":)" + std::to_string(code) + R"(,"message":")" + text + "\"}";
  };
  for (const auto& [id, rest, said] : std::vector<std::array<std::string, 3>>{
           {"0", ping, empty},
           {"-7", R"("method": "ping", "params": [1])", empty},
           {"9007199254740993", ping, empty},
           {"18446744073709551615", ping, empty},
           {"1.5", ping, empty},
           {"\"\"", ping, empty},
           {R"("a \"b\"\né")", ping, empty},
           {"null", ping, empty},
           {"1", R"("method": "server/discover")", wrong(-32601, "Method not found: server/discover")},
           {"1", R"("method": 5)", wrong(-32601, "Method not found: ")},
           {"1", R"("method": "tools/call", "params": {"name": "tovi_fly"})", wrong(-32602, "Unknown tool tovi_fly")},
           {"1", R"("method": "tools/call")", wrong(-32602, "Unknown tool ")}}) {
    const std::string message = R"({"jsonrpc": "2.0", "id": )" + id + ", " + rest + "}\r";
    EXPECT_EQ(ask(message), Json::parse(R"({"jsonrpc":"2.0","id":)" + id + "," + said + "}"));
    EXPECT_EQ(server.answer(message)->find('\n'), std::string::npos) << "an answer is one line";
    EXPECT_NE(server.answer(message)->find(R"("id":)" + Json::parse(id).dump()), std::string::npos);
  }
  EXPECT_TRUE(sent.empty());
}

TEST_F(MCP, NothingIsSaidToNotificationsAndRubbish) {
  for (const std::string& message :
       {std::string(R"({"jsonrpc": "2.0", "method": "notifications/initialized"})"),
        std::string(R"({"jsonrpc": "2.0", "method": "notifications/cancelled", "params": {"requestId": 1}})"),
        std::string(R"({"jsonrpc": "2.0", "method": "made/up"})"),
        std::string(R"({"jsonrpc": "2.0", "method": "tools/call", "params": {"name": "tovi_status"}})"),
        std::string(""), std::string(" "), std::string("7"), std::string("null"),
        std::string(R"([{"id": 1, "method": "ping"}])"), std::string(R"({"id": 1, "method": "ping")"),
        std::string("{\"id\": 1, \"method\": \"\xff\"}"), std::string("{\"id\": 1\0}", 10), std::string(1 << 20, '['),
        R"({"id": 1, "method": "ping", "x": )" + std::string(500'000, '[') + std::string(500'000, ']') + "}",
        R"({"id": )" + std::string(100'000, '[') + std::string(100'000, ']') + R"(, "method": "ping"})"}) {
    EXPECT_EQ(server.answer(message), std::nullopt) << message.substr(0, 80);
  }
  EXPECT_TRUE(sent.empty());
}

TEST_F(MCP, InitializeSpeaksTheClientsVersion) {
  for (const auto& [params, version] :
       std::map<std::string, std::string>{{R"({"protocolVersion": "2024-11-05"})", "2024-11-05"},
                                          {R"({"protocolVersion": "2099-01-01", "capabilities": {}})", "2099-01-01"},
                                          {R"({"protocolVersion": 3})", "2025-06-18"},
                                          {"[]", "2025-06-18"}}) {
    EXPECT_EQ(ask(R"({"id": 1, "method": "initialize", "params": )" + params + "}")["result"]["protocolVersion"],
              version);
  }
}

TEST_F(MCP, CallsBecomeCommands) {
  for (const auto& [tool, args, command] : std::vector<std::array<std::string, 3>>{
           {"status", "[]", "status {}"},
           {"keep_awake", R"({"reason": "x"})", R"(hold {"minutes":120.0,"owner":4711,"reason":"x"})"},
           {"keep_awake", R"({"minutes": "5", "owner": 1})", R"(hold {"minutes":"5","owner":4711})"},
           {"keep_awake", R"({"pid": 77})", R"(hold {"owner":4711,"pid":77})"},
           {"keep_awake", R"({"pid": null, "minutes": null})", R"(hold {"minutes":120.0,"owner":4711})"},
           // Minutes that the application could make nothing of would be a hold without end.
           {"keep_awake", R"({"minutes": "long"})", R"(hold {"minutes":120.0,"owner":4711})"},
           {"keep_awake", R"({"minutes": -1})", R"(hold {"minutes":120.0,"owner":4711})"},
           {"release", "{}", R"(release_pid {"pid":4711})"},
           {"release", R"({"hold_id": "ab12"})", R"(release_own {"id":"ab12","pid":4711})"},
           {"release", R"({"hold_id": null})", R"(release_pid {"pid":4711})"},
           // Not every hold for want of a name that can be read.
           {"release", R"({"hold_id": 12, "pid": 1})", R"(release_own {"id":12,"pid":4711})"},
           {"set_mode", R"({"mode": "on", "minutes": 30, "until_hour": 7})", R"(mode {"minutes":30,"mode":"on"})"},
           {"set_preset", R"({"preset": "balanced"})", R"(preset {"preset":"balanced"})"},
           {"set_app_rule", R"({"app": "Slack", "rule": "slow"})", R"(rule {"app":"Slack","rule":"slow"})"},
           {"watch_app", R"({"app": "ffmpeg", "remove": false})", R"(watch {"app":"ffmpeg","remove":false})"},
           {"add_agent", R"({"executable": "a", "idle_watts": 0.1, "name": "A", "remove": true})",
            R"(agent {"executable":"a","idle_watts":0.1,"name":"A","remove":true})"},
           {"settings", "{}", "schema {}"},
           {"set_setting", R"({"key": "battery_floor", "value": 20})", R"(set {"key":"battery_floor","value":20})"},
           {"power", "{}", "power {}"},
           {"power_test", R"({"detailed": true, "screen": false})", R"(power_test {"detailed":true,"screen":false})"},
           {"energy", "{}", "energy {}"},
           {"measure_savings", "{}", "measure {}"},
           {"get_config", "{}", "config {}"}}) {
    sent.clear();
    call("tovi_" + tool, Json::parse(args));
    ASSERT_EQ(sent.size(), 1u) << tool;
    EXPECT_EQ(sent[0].command + " " + sent[0].args.dump(), command);
    EXPECT_EQ(sent[0].seconds, tool == "power" ? 10 : tool == "measure_savings" ? 20 : 8) << tool;
  }
}

TEST_F(MCP, RepliesBecomeTextAndFailuresAreResultsToo) {
  for (const bool ok : {true, false}) {
    reply = ok ? Json{{"ok", true}, {"name", "caf\xe9"}} : Wire::failure("Couldn't find Not/Here");
    const Json answer = call("tovi_watch_app", {{"app", "Not/Here"}});
    EXPECT_FALSE(answer.contains("error"));
    EXPECT_EQ(answer["result"],
              Json({{"content", {{{"type", "text"}, {"text", Wire::json(reply)}}}}, {"isError", !ok}}));
  }
  sent.clear();
  const Json answer = call("tovi_setup_prompt", {});
  const Json prompt = Json::parse(answer["result"]["content"][0]["text"].get<std::string>());
  EXPECT_EQ(prompt["prompt"].get<std::string>() + "\n", CLITexts::kPrompt);
  EXPECT_EQ(answer["result"]["isError"], false);
  EXPECT_TRUE(sent.empty());
}

// Two sessions with one application.
class MCPSessions : public testing::Test, protected Center {
 protected:
  const Pid first = program("/usr/bin/editor"), second = program("/usr/bin/terminal");

  Json call(Pid session, const std::string& tool, const Json& args = Json::object()) {
    const MCPServer server({.agent = session, .send = [this](const std::string& command, const Json& given, Seconds) {
                              return ask(command, given);
                            }});
    const auto line = server.answer(
        Json{{"id", 1}, {"method", "tools/call"}, {"params", {{"name", tool}, {"arguments", args}}}}.dump());
    const Json result = (*json::parse(*line))["result"];
    Json reply = *json::parse(result["content"][0]["text"].get<std::string>());
    EXPECT_EQ(result["isError"].get<bool>(), !reply["ok"].get<bool>());
    return reply;
  }
  std::string hold(Pid session) { return call(session, "tovi_keep_awake", {{"reason", "x"}})["hold"]["id"]; }
};

TEST_F(MCPSessions, EndTheirOwnHoldsAndNobodyElses) {
  const std::string mine = hold(first), other = hold(second);
  EXPECT_EQ(call(second, "tovi_release", {{"hold_id", mine}})["error"], "no hold " + mine + " made by this session");
  EXPECT_EQ(call(second, "tovi_release")["released"], 1);
  EXPECT_TRUE(holds(true)) << "the first session's hold stands";
  EXPECT_EQ(call(first, "tovi_release", {{"hold_id", other}})["ok"], false);
  EXPECT_EQ(call(first, "tovi_release", {{"hold_id", mine}})["released"], 1);
  EXPECT_TRUE(holds(false));
}

// A file in memory that holds `text`, to be read from its beginning.
int fileOf(const std::string& text) {
  const int fd = ::memfd_create("lines", 0);
  EXPECT_EQ(::pwrite(fd, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  return fd;
}

TEST(LineService, EveryLineUpToTheLimitIsOneMessageAndLongerOnesArePassedOver) {
  const std::string longest(LineService::kLongestLine, 'x');
  const int input = fileOf("a\n\n" + longest + "\n" + longest + "x\nb\n" + longest + longest + longest + "\nc");
  const int output = ::memfd_create("answers", 0);
  LineService::serve(input, output, [](std::string_view line) -> std::optional<std::string> {
    if (line == "b") return std::nullopt;
    return line.size() > 10 ? std::to_string(line.size()) : "<" + std::string{line} + ">";
  });
  std::string said(100, '\0');
  said.resize(static_cast<std::size_t>(::pread(output, said.data(), said.size(), 0)));
  EXPECT_EQ(said, "<a>\n<>\n1048576\n<c>\n");
  ::close(input);
  ::close(output);
}

TEST(LineService, EndsWhenNobodyReadsWhileNoInputComes) {
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  int idle[2], output[2];
  ASSERT_EQ(::pipe(idle), 0);
  ASSERT_EQ(::pipe(output), 0);
  EXPECT_FALSE(LineService::readerGoesWithin(output[1], Seconds{0.001}));
  ::close(output[0]);
  EXPECT_TRUE(LineService::readerGoesWithin(output[1], Seconds{600}));
  LineService::serve(idle[0], output[1], [](std::string_view) { return std::nullopt; });

  // And where the reader goes between two answers.
  ASSERT_EQ(::pipe(output), 0);
  const int input = fileOf("a\nb\nc\n");
  int answers = 0;
  LineService::serve(input, output[1], [&](std::string_view) {
    if (++answers == 2) ::close(output[0]);
    return "x";
  });
  EXPECT_EQ(answers, 2);
  std::signal(SIGPIPE, before);
  for (const int fd : {idle[0], idle[1], input}) ::close(fd);
}

}  // namespace
}  // namespace tovi
