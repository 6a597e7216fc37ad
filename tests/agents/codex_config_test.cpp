#include "agents/CodexConfig.h"

#include <gtest/gtest.h>

namespace tovi {
namespace {

const std::string kOurs = "command = \"/bin/tovi\"\nargs = [\"mcp\"]\n";

std::optional<std::string> updated(std::string_view text) { return codexUpdated(text, "/bin/tovi", {"mcp"}); }

TEST(CodexTable, ChangesItsTwoLinesAndNoOtherByte) {
  struct Case {
    const char* name;
    std::string before, after;
  };
  const std::string header = "[mcp_servers.tovi]\n";
  const Case cases[] = {
      {"no file", "", header + kOurs},
      {"no table", "model = \"x\"\n", "model = \"x\"\n\n" + header + kOurs},
      {"a form feed is no blank", "\f", "\f\n\n" + header + kOurs},
      {"no last line break", "a = 1", "a = 1\n\n" + header + kOurs},
      {"a comment is no header", "# [mcp_servers.tovi]\n", "# [mcp_servers.tovi]\n\n" + header + kOurs},
      {"a string holds a header", "a = '''\n[mcp_servers.tovi]\n'''\n",
       "a = '''\n[mcp_servers.tovi]\n'''\n\n" + header + kOurs},
      {"keys of the person's own",
       header + "env = { A = \"1\" }\ncommand = \"old\"\n # mine\nargs = []\n[b]\ncommand = 1\n",
       header + kOurs + "env = { A = \"1\" }\n # mine\n[b]\ncommand = 1\n"},
      {"the header quoted and commented", "[ mcp_servers . \"tovi\" ] # it\ncommand='x'\n",
       "[ mcp_servers . \"tovi\" ] # it\n" + kOurs},
      {"a table below ours", header + "[mcp_servers.tovi.a]\nargs = 1\n",
       header + kOurs + "[mcp_servers.tovi.a]\nargs = 1\n"},
      {"a list of tables doesn't end it", header + "[[x]]\nargs = 1\n", header + kOurs + "[[x]]\nargs = 1\n"},
      {"values of several lines",
       header + "args = [\n  [\"a\"], # ]\n  \"]\",\n]\ncommand = \"\"\"\nargs = 1\n\"\"\"\nz = 1\n",
       header + kOurs + "z = 1\n"},
      {"quotes before the closing ones", header + "command = \"\"\"a\\\"\"\"\"\"\nz = 1\n", header + kOurs + "z = 1\n"},
      {"a header without a line break", "[mcp_servers.tovi]", header + kOurs.substr(0, kOurs.size() - 1)},
      {"mixed line breaks, and none at the end", "\n[mcp_servers.tovi]\nb =\r\ncommand = 1",
       "\n[mcp_servers.tovi]\n" + std::string(kOurs) + "b ="},
      {"Windows' line breaks", "a = 1\r\n[mcp_servers.tovi]\r\ncommand = 'x'\r\nb = 2\r\n",
       "a = 1\r\n[mcp_servers.tovi]\r\ncommand = \"/bin/tovi\"\r\nargs = [\"mcp\"]\r\nb = 2\r\n"},
      {"another's table with a dot in its name", "[\"mcp_servers.tovi\"]\nargs = 1\n",
       "[\"mcp_servers.tovi\"]\nargs = 1\n\n" + header + kOurs},
  };
  for (const Case& one : cases) {
    EXPECT_FALSE(codexInlineTovi(one.before)) << one.name;
    EXPECT_EQ(updated(one.before), one.after) << one.name;
    EXPECT_EQ(updated(one.after), one.after) << one.name << ", twice";
  }
  EXPECT_EQ(codexUpdated("", "C:\\a \"b\"\n", {"x", "\\"}),
            header + "command = \"C:\\\\a \\\"b\\\"\\u000A\"\nargs = [\"x\", \"\\\\\"]\n");
}

TEST(CodexTable, ATextThatCannotBeDelimitedIsNotTouched) {
  for (const std::string text : {"a = \"\"\"\n[mcp_servers.tovi]\ncommand = 1\n", "a = '''", "a = \"x\n", "a = [1,\n",
                                 "a = ]\n", "a = {b = 1\n", "[a] b\n", "[]\n", "[mcp_servers.tovi\n", "a = \"\\",
                                 "a = \"\xFF\"\n", "[mcp_servers.\"t\\u006fvi\"]\n", "a = 1\rb = 2\n"}) {
    EXPECT_EQ(updated(text), std::nullopt) << text;
    EXPECT_FALSE(canSetTopLevel(text, "a")) << text;
    EXPECT_EQ(topLevelLine(text, "a"), std::nullopt) << text;
    EXPECT_EQ(setTopLevel(text, "a", "a = 1"), text);
  }
}

TEST(CodexTable, AllServersInOneValueTakeNoTable) {
  for (const char* text :
       {"mcp_servers = {}\n", "mcp_servers = \"tovi = 1\"\n", "mcp_servers = { a = { tovi = 1 }, tovi2 = 1 }\n",
        "mcp_servers = { a = [1, { tovi = 1 }], # tovi = {}\n }\n", "mcp_servers = { \"t\\u006fvi\" = {} }\n"}) {
    EXPECT_EQ(updated(text), std::nullopt) << text;
    EXPECT_FALSE(codexInlineTovi(text)) << text;
  }
}

TEST(CodexTable, AnEntryWrittenByHandIsSeen) {
  for (const char* text :
       {" mcp_servers . tovi . command = 1\n", "[a]\n[mcp_servers]\n  \"tovi\".command = 1\n", "[[mcp_servers.tovi]]\n",
        "mcp_servers = { a = [\"}\"], # }\n \"tovi\" . command = 'x' }\n"}) {
    EXPECT_TRUE(codexInlineTovi(text)) << text;
  }
  for (const char* text : {"[a]\nmcp_servers.tovi = {}\n", "mcp_servers.tovi2.x = 1\n",
                           "[mcp_servers]\ntovi2 = {}\n# tovi = 1\n", "[mcp_servers]\na = '''\ntovi = 1\n'''\n"}) {
    EXPECT_FALSE(codexInlineTovi(text)) << text;
  }
}

TEST(TopLevel, AChangeTakenBackLeavesEveryByte) {
  struct Case {
    std::string before, found, on;
  };
  const Case cases[] = {
      {"", "", "k = 1\n"},
      {"a = 1\r\n", "", "k = 1\r\na = 1\r\n"},
      {"[t]\nk = \"x\"\n", "", "k = 1\n[t]\nk = \"x\"\n"},
      {"\xEF\xBB\xBF# mark\n", "", "\xEF\xBB\xBFk = 1\n# mark\n"},
      {"\xEF\xBB\xBFk=2", "k=2", "\xEF\xBB\xBFk = 1"},
      {"a = '''\nk = 3\n'''\n", "", "k = 1\na = '''\nk = 3\n'''\n"},
      {"kk = 0\n\t k  = 2 # why \t\r\nb = 3\n", "k  = 2 # why", "kk = 0\n\t k = 1 \t\r\nb = 3\n"},
      {"'k' = [\r\n 1,\r\n] \r\n[t]", "'k' = [\r\n 1,\r\n]", "k = 1 \r\n[t]"},
  };
  for (const Case& one : cases) {
    EXPECT_TRUE(canSetTopLevel(one.before, "k")) << one.before;
    const auto line = topLevelLine(one.before, "k");
    EXPECT_EQ(line.value_or(""), one.found) << one.before;
    EXPECT_EQ(setTopLevel(one.before, "k", "k = 1"), one.on);
    EXPECT_EQ(topLevelLine(one.on, "k"), "k = 1");
    EXPECT_EQ(setTopLevel(one.on, "k", line), one.before);
  }
}

TEST(TopLevel, AKeyThatIsATableIsNotSet) {
  for (const char* text : {"k.a = 1\n", "[k]\n", "[x]\n[k.a]\n", "[[k]]\n"})
    EXPECT_FALSE(canSetTopLevel(text, "k")) << text;
  EXPECT_TRUE(canSetTopLevel("[x]\nk.a = 1\n", "k"));
}

}  // namespace
}  // namespace tovi
