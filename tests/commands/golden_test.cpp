// What agents read before their first call, to the letter: a change of these texts changes what agents do, so it has to
// be seen. TOVI_GOLDEN=write in the environment takes the present texts for the right ones.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "commands/Center.h"
#include "commands/MCPServer.h"
#include "core/SettingsSchema.h"

namespace tovi {
namespace {

void expectGolden(const char* name, const Json& value) {
  const std::string path = std::string(TOVI_GOLDEN_FOLDER) + "/" + name;
  const char* write = std::getenv("TOVI_GOLDEN");
  if (write != nullptr && std::string_view{write} == "write") std::ofstream(path) << json::pretty(value) << "\n";
  std::ostringstream golden;
  golden << std::ifstream(path).rdbuf();
  EXPECT_EQ(json::pretty(value) + "\n", golden.str());
}

TEST(Golden, ToolsAndInstructions) {
  MCPServer server{{.agent = 1, .send = [](const std::string&, const Json&, Seconds) { return Json(); }}};
  const auto result = [&](const char* method) {
    const std::string request = R"({"jsonrpc": "2.0", "id": 1, "method": ")" + std::string(method) + R"("})";
    return json::parse(server.answer(request).value_or("{}")).value_or(Json())["result"];
  };
  expectGolden("initialize.json", result("initialize"));
  expectGolden("tools.json", result("tools/list"));
}

TEST(Golden, Settings) {
  MemoryLaptop laptop;
  expectGolden("settings.json", SettingsSchema::describe(Config{}, StateFiles(laptop.machine())));
}

}  // namespace
}  // namespace tovi
