// The manual page.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <nlohmann/json.hpp>

#include "commands/Guide.h"
#include "commands/MCPTools.h"
#include "commands/Pages.h"
#include "core/Modes.h"
#include "core/SettingsSchema.h"

namespace tovi {

namespace {

// As text of the page: nothing in it may read as a command of the formatter.
std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '\\') {
      result += "\\e";
    } else if (c == '-') {
      result += "\\-";
    } else if (c == '\'') {
      result += "\\(aq";
    } else if (c == '`') {
      result += "\\(ga";
    } else {
      result += c;
    }
  }
  return result.starts_with('.') ? "\\&" + result : result;
}

std::string section(std::string_view title) { return fmt::format(".SH {}\n", title); }
std::string paragraph(std::string_view text) { return fmt::format("{}\n", escaped(text)); }

// A term on its own line, perhaps with more behind it, and below it what it means.
std::string entry(std::string_view term, std::string_view text, std::string_view more = {}) {
  const std::string_view gap = more.empty() ? "" : "  ";
  return fmt::format(".TP\n\\fB{}\\fR{}{}\n{}", escaped(term), gap, escaped(more),
                     text.empty() ? "\\&\n" : paragraph(text));
}

std::string settings() {
  std::string text = section("SETTINGS");
  text += paragraph(
      "Changed with tovi set <key> <value>. What keeps the machine safe can only be made stricter from here.");
  for (const SettingSpec& spec : SettingsSchema::all()) {
    std::string about{spec.description};
    if (!spec.note.empty()) about += fmt::format(" {}", spec.note);
    text += entry(spec.key, about, fmt::format("{}", fmt::join(spec.allowed, "|")));
  }
  text += ".PP\n" + paragraph("Lists, which are changed in another way:");
  for (const SettingList& list : SettingsSchema::lists()) {
    text += entry(list.name, fmt::format("{} {}", list.what, list.how));
  }
  return text;
}

std::string presets() {
  std::string text = section("PRESETS") + paragraph(SettingsSchema::spec("preset")->description);
  text += ".PP\n" + paragraph(fmt::format("They are called {}, {} and {}.", publicName(Preset::longest),
                                          publicName(Preset::balanced), publicName(Preset::speed)));
  return text;
}

std::string tools() {
  std::string text = section("TOOLS FOR AGENTS");
  text += paragraph("tovi mcp serves these over the Model Context Protocol; tovi connect tells agents so.");
  for (const MCPTools::Tool& tool : MCPTools::all()) text += entry(tool.name, tool.description);
  return text;
}

struct Row {
  const char* term;
  const char* text;
};

constexpr Row kFiles[] = {
    {"~/Library/Application Support/Tovi/config.json", "The settings. Edits are taken over at once."},
    {"~/Library/Application Support/Tovi", "Everything else that Tovi keeps."},
};

constexpr Row kEnvironment[] = {
    {"NO_COLOR", "If set and not empty, nothing is printed in bold or faint letters."},
    {"TOVI_MACHINE", "A folder that holds a simulated laptop, to be used in place of this computer."},
    {"XDG_RUNTIME_DIR", "Where the socket lies on which a running Tovi takes requests; without it, in /tmp."},
};

constexpr Row kExits[] = {
    {"0", "It was done."},
    {"1", "Tovi refused or didn't answer, a power test failed, or rescue had to leave something behind."},
    {"2", "The words couldn't be understood."},
    {"127",
     "run couldn't start its command. Otherwise run ends with the status of the command, or with 128 and the "
     "number of the signal that ended it."},
};

template <std::size_t count>
std::string rows(std::string_view title, const Row (&list)[count]) {
  std::string text = section(title);
  for (const Row& row : list) text += entry(row.term, row.text);
  return text;
}

}  // namespace

std::string Pages::manual() {
  std::string page = ".TH TOVI 1 \"\" \"Tovi 1.0\" \"User Commands\"\n";
  page += section("NAME") + "tovi \\- keep a laptop awake with the lid closed, without wasting battery\n";
  page += section("SYNOPSIS") + ".B tovi\n.I word\n[\\fIarguments\\fR]\n";
  page += section("DESCRIPTION");
  page += paragraph(
      "tovi asks the running application what it is doing and tells it what to do. Where no application runs it is "
      "started; doctor, rescue, watchdog, setup and uninstall work without it, for the time when something is wrong.");
  page += section("WORDS");
  for (const Guide::Topic& topic : Guide::topics()) {
    std::string about = topic.summary;
    for (const std::string& word : topic.words) {
      for (const auto other : Guide::otherNames(word)) about += fmt::format("; also {}", other);
    }
    page += entry("tovi " + topic.synopsis, about);
  }
  page += settings() + presets() + tools();
  page += rows("FILES", kFiles) + rows("ENVIRONMENT", kEnvironment) + rows("EXIT STATUS", kExits);
  return page;
}

}  // namespace tovi
