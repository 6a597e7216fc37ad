#include "commands/MCPServer.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands/LineService.h"
#include "commands/Wire.h"
#include "core/Json.h"

namespace tovi {

namespace {

using Json = nlohmann::json;
using MCPTools::Session;

constexpr char kNewestVersion[] = "2025-06-18";

constexpr char kInstructions[] =
    "Tovi keeps this Mac awake with the lid closed and cuts power while it does. Call tovi_keep_awake at the start of "
    "long work so closing the lid won't stop you; it ends by itself when this session does. To tune it: tovi_settings "
    "lists every setting, tovi_power shows what's using power and which setting fixes it, tovi_power_test measures "
    "each saving with the lid closed. If asked to set Tovi up, follow tovi_setup_prompt.";

// The error codes of JSON-RPC.
constexpr int kMethodNotFound = -32601;
constexpr int kInvalidParams = -32602;

Json result(Json value) { return {{"result", std::move(value)}}; }
Json error(int code, std::string message) { return {{"error", {{"code", code}, {"message", std::move(message)}}}}; }

Json initialize(const Json& params, const Session&) {
  return result({{"protocolVersion", json::textAt(params, "protocolVersion").value_or(kNewestVersion)},
                 {"capabilities", {{"tools", Json::object()}}},
                 {"serverInfo", {{"name", "tovi"}, {"version", "1.0"}}},
                 {"instructions", kInstructions}});
}

Json ping(const Json&, const Session&) { return result(Json::object()); }

Json listTools(const Json&, const Session&) {
  Json tools = Json::array();
  for (const MCPServer::Tool& tool : MCPServer::tools()) {
    tools.push_back({{"name", tool.name}, {"description", tool.description}, {"inputSchema", tool.schema()}});
  }
  return result({{"tools", std::move(tools)}});
}

// A tool that fails has a result all the same: the agent is to read why.
Json callTool(const Json& params, const Session& session) {
  const std::string name = json::textAt(params, "name").value_or("");
  const MCPServer::Tool* tool = MCPTools::find(name);
  if (tool == nullptr) return error(kInvalidParams, "Unknown tool " + name);
  const Json* args = json::member(params, "arguments");
  const Json reply = tool->call(args != nullptr ? *args : Json::object(), session);
  return result({{"content", Json::array({{{"type", "text"}, {"text", Wire::json(reply)}}})},
                 {"isError", json::boolAt(reply, "ok") == false}});
}

struct Method {
  std::string_view name;
  Json (*run)(const Json& params, const Session& session);
};

constexpr Method kMethods[] = {
    {"initialize", initialize},
    {"ping", ping},
    {"tools/list", listTools},
    {"tools/call", callTool},
};

}  // namespace

std::optional<std::string> MCPServer::answer(std::string_view message) const {
  const auto request = json::parseObject(message);
  const Json* id = request ? json::member(*request, "id") : nullptr;
  if (id == nullptr) return std::nullopt;
  const std::string name = json::textAt(*request, "method").value_or("");
  const Json* params = json::member(*request, "params");
  const auto method = std::ranges::find(kMethods, name, &Method::name);
  Json reply = method != std::end(kMethods) ? method->run(params != nullptr ? *params : Json::object(), session_)
                                            : error(kMethodNotFound, "Method not found: " + name);
  reply["jsonrpc"] = "2.0";
  reply["id"] = *id;
  return json::compact(reply);
}

int MCPServer::run(int input, int output) const {
  LineService::serve(input, output, [this](std::string_view line) { return answer(line); });
  return 0;
}

}  // namespace tovi
