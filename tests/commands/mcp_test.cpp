// The server that agents talk to: its messages, the commands that its tools become, whose holds it may end, and the
// lines on which it all travels.

#include "commands/MCPServer.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>

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
  const struct {
    const char* id;
    const char* rest;  // of the message
    const char* said;  // of the answer
  } cases[] = {
      {"0", R"("method": "ping")", R"("result":{})"},
      {"-7", R"("method": "ping", "params": [1])", R"("result":{})"},
      {"9007199254740993", R"("method": "ping")", R"("result":{})"},
      {"18446744073709551615", R"("method": "ping")", R"("result":{})"},
      {"1.5", R"("method": "ping")", R"("result":{})"},
      {"\"7\"", R"("method": "ping")", R"("result":{})"},
      {"\"\"", R"("method": "ping")", R"("result":{})"},
      {R"("a \"b\"\né")", R"("method": "ping")", R"("result":{})"},
      {"null", R"("method": "ping")", R"("result":{})"},
      {"1", R"("method": "server/discover")",
       R"("error":{"code":-32601,"message":"Method not found: server/discover"})"},
      {"1", R"("method": "resources/list")", R"("error":{"code":-32601,"message":"Method not found: resources/list"})"},
      {"1", R"("method": 5)", R"("error":{"code":-32601,"message":"Method not found: "})"},
      {"1", R"("method": "tools/call", "params": {"name": "tovi_fly"})",
       R"("error":{"code":-32602,"message":"Unknown tool tovi_fly"})"},
      {"1", R"("method": "tools/call", "params": {"name": ["tovi_status"]})",
       R"("error":{"code":-32602,"message":"Unknown tool "})"},
      {"1", R"("method": "tools/call")", R"("error":{"code":-32602,"message":"Unknown tool "})"},
  };
  for (const auto& row : cases) {
    const std::string message = std::string(R"({"jsonrpc": "2.0", "id": )") + row.id + ", " + row.rest + "}\r";
    std::string wanted = std::string(R"({"jsonrpc":"2.0","id":)") + row.id + "," + row.said + "}";
    EXPECT_EQ(ask(message), Json::parse(wanted));
    EXPECT_EQ(server.answer(message)->find('\n'), std::string::npos) << "an answer is one line";
    EXPECT_NE(server.answer(message)->find(std::string(R"("id":)") + Json::parse(row.id).dump()), std::string::npos);
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
  const struct {
    const char* params;
    const char* version;
  } cases[] = {
      {R"({"protocolVersion": "2024-11-05"})", "2024-11-05"},
      {R"({"protocolVersion": "2099-01-01", "capabilities": {}})", "2099-01-01"},
      {R"({"protocolVersion": 3})", "2025-06-18"},
      {"{}", "2025-06-18"},
      {"[]", "2025-06-18"},
  };
  for (const auto& row : cases) {
    const Json result =
        ask(std::string(R"({"id": 1, "method": "initialize", "params": )") + row.params + "}")["result"];
    EXPECT_EQ(result["protocolVersion"], row.version);
    EXPECT_EQ(result["capabilities"], Json::parse(R"({"tools": {}})"));
    EXPECT_EQ(result["serverInfo"], Json::parse(R"({"name": "tovi", "version": "1.0"})"));
    EXPECT_TRUE(result["instructions"].get<std::string>().starts_with("Tovi keeps this Mac awake"));
    EXPECT_EQ(result.size(), 4u);
  }
}

// As a person would note a tool down: "reason* string, mode* string off|auto".
std::string signature(const Json& schema) {
  std::string text;
  for (const auto& [name, property] : schema["properties"].items()) {
    const auto& required = schema["required"];
    if (!text.empty()) text += ", ";
    text += name;
    if (std::find(required.begin(), required.end(), name) != required.end()) text += "*";
    text += " " + property["type"].get<std::string>();
    for (const auto& choice : property.value("enum", Json::array())) text += "|" + choice.get<std::string>();
    EXPECT_NE(property["description"], "") << name;
  }
  return text;
}

TEST_F(MCP, ToolsAreListedInOrderWithTheirParameters) {
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"tovi_status", ""},
      {"tovi_keep_awake", "minutes number, pid integer, reason* string"},
      {"tovi_release", "hold_id string"},
      {"tovi_set_mode", "minutes number, mode* string|off|auto|always"},
      {"tovi_set_preset", "preset* string|max_battery|balanced|full_speed"},
      {"tovi_set_app_rule", "app* string, rule* string|leave|slow|pause|default"},
      {"tovi_watch_app", "app* string, remove boolean"},
      {"tovi_add_agent", "executable* string, idle_watts number, name* string, remove boolean"},
      {"tovi_settings", ""},
      {"tovi_set_setting", "key* string, value* string"},
      {"tovi_power", ""},
      {"tovi_power_test", "detailed boolean, screen boolean"},
      {"tovi_setup_prompt", ""},
      {"tovi_energy", ""},
      {"tovi_measure_savings", ""},
      {"tovi_get_config", ""},
  };
  std::vector<std::pair<std::string, std::string>> listed;
  const Json answer = ask(R"({"id": 1, "method": "tools/list"})");
  for (const Json& tool : answer["result"]["tools"]) {
    const Json& schema = tool["inputSchema"];
    EXPECT_EQ(schema["type"], "object");
    EXPECT_TRUE(schema["properties"].is_object() && schema["required"].is_array() && schema.size() == 3) << schema;
    EXPECT_GT(tool["description"].get<std::string>().size(), 20u);
    EXPECT_EQ(tool.size(), 3u);
    listed.emplace_back(tool["name"], signature(schema));
  }
  EXPECT_EQ(listed, expected);
}

TEST_F(MCP, CallsBecomeCommands) {
  const struct {
    const char* tool;
    const char* args;
    const char* command;
    const char* sent;
    double seconds = 8;
  } cases[] = {
      {"tovi_status", "{}", "status", "{}"},
      {"tovi_status", "[]", "status", "{}"},
      {"tovi_status", R"({"limit": 3})", "status", "{}"},
      {"tovi_keep_awake", R"({"reason": "x"})", "hold", R"({"reason": "x", "owner": 4711, "minutes": 120})"},
      {"tovi_keep_awake", R"({"reason": "x", "minutes": 5})", "hold",
       R"({"reason": "x", "owner": 4711, "minutes": 5})"},
      {"tovi_keep_awake", R"({"reason": "x", "minutes": "5"})", "hold",
       R"({"reason": "x", "owner": 4711, "minutes": "5"})"},
      {"tovi_keep_awake", R"({"reason": "x", "pid": 77})", "hold", R"({"reason": "x", "owner": 4711, "pid": 77})"},
      {"tovi_keep_awake", R"({"pid": "abc"})", "hold", R"({"owner": 4711, "pid": "abc"})"},
      {"tovi_keep_awake", R"({"pid": null, "minutes": null})", "hold", R"({"owner": 4711, "minutes": 120})"},
      // Minutes that the application could make nothing of would be a hold without end.
      {"tovi_keep_awake", R"({"minutes": "long"})", "hold", R"({"owner": 4711, "minutes": 120})"},
      {"tovi_keep_awake", R"({"minutes": -1})", "hold", R"({"owner": 4711, "minutes": 120})"},
      {"tovi_keep_awake", R"({"reason": "x", "owner": 1})", "hold",
       R"({"reason": "x", "owner": 4711, "minutes": 120})"},
      {"tovi_release", "{}", "release_pid", R"({"pid": 4711})"},
      {"tovi_release", R"({"hold_id": null})", "release_pid", R"({"pid": 4711})"},
      {"tovi_release", R"({"hold_id": "ab12"})", "release_own", R"({"id": "ab12", "pid": 4711})"},
      // Not every hold for want of a name that can be read.
      {"tovi_release", R"({"hold_id": 12, "pid": 1})", "release_own", R"({"id": 12, "pid": 4711})"},
      {"tovi_set_mode", R"({"mode": "always", "minutes": 30})", "mode", R"({"mode": "always", "minutes": 30})"},
      {"tovi_set_mode", R"({"mode": "on", "until_hour": 7})", "mode", R"({"mode": "on"})"},
      {"tovi_set_preset", R"({"preset": "balanced"})", "preset", R"({"preset": "balanced"})"},
      {"tovi_set_app_rule", R"({"app": "Slack", "rule": "default"})", "rule", R"({"app": "Slack", "rule": "default"})"},
      {"tovi_watch_app", R"({"app": "ffmpeg", "remove": false})", "watch", R"({"app": "ffmpeg", "remove": false})"},
      {"tovi_add_agent", R"({"name": "A", "executable": "a", "idle_watts": 0.1, "remove": true})", "agent",
       R"({"name": "A", "executable": "a", "idle_watts": 0.1, "remove": true})"},
      {"tovi_settings", "{}", "schema", "{}"},
      {"tovi_set_setting", R"({"key": "battery_floor", "value": "20"})", "set",
       R"({"key": "battery_floor", "value": "20"})"},
      {"tovi_set_setting", R"({"key": "battery_floor", "value": 20})", "set",
       R"({"key": "battery_floor", "value": 20})"},
      {"tovi_power", "{}", "power", "{}", 10},
      {"tovi_power_test", R"({"detailed": true, "screen": false})", "power_test",
       R"({"detailed": true, "screen": false})"},
      {"tovi_energy", "{}", "energy", "{}"},
      {"tovi_measure_savings", "{}", "measure", "{}", 20},
      {"tovi_get_config", "{}", "config", "{}"},
  };
  for (const auto& row : cases) {
    sent.clear();
    call(row.tool, Json::parse(row.args));
    ASSERT_EQ(sent.size(), 1u) << row.tool;
    EXPECT_EQ(sent[0].command, row.command) << row.tool << row.args;
    EXPECT_EQ(sent[0].args, Json::parse(row.sent)) << row.tool << row.args;
    EXPECT_EQ(sent[0].seconds, row.seconds) << row.tool;
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

TEST_F(MCPSessions, HoldEndsWithTheClientThatStartedTheServer) {
  hold(first);
  laptop.advance(60);
  EXPECT_TRUE(holds(true));
  laptop.processes().exit(first);
  laptop.advance(4);
  EXPECT_TRUE(holds(false));
}

TEST_F(MCPSessions, ModeWordsOfAgentsAreUnderstood) {
  EXPECT_EQ(call(first, "tovi_set_mode", {{"mode", "always"}})["ok"], true);
  EXPECT_EQ(engine().config->mode, Mode::on);
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
