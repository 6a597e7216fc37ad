#include "commands/CLITexts.h"

namespace tovi {

const char CLITexts::kUsage[] = R"TEXT(tovi: keep your Mac awake with the lid closed, without wasting battery.

  tovi status [--json]              what it's doing and why
  tovi auto | off                   switch mode
  tovi on|always [--for 2h]         keep awake no matter what
  tovi sleep                        let it sleep now (agents wait until the lid opens again)
  tovi hold [--for 90m] [--reason "training"] [--pid N]
                                    keep awake until time runs out, the process exits, or release
  tovi release [id]                 end one hold, or all of them
  tovi wake-at 07:00 [--for 30m]    wake from sleep at that time and stay awake a while (off cancels)
  tovi check-in 0|15|30|60          while asleep with the lid shut, wake this often to pick up a wake from the phone
  tovi run [--reason text] -- cmd   keep awake exactly as long as cmd runs
  tovi preset max_battery|balanced|full_speed
  tovi rule <app> leave|slow|pause  what an app does while the lid is closed
  tovi watch|unwatch <app>          keep awake while an app is busy
  tovi set <key> <value>            change any setting (tovi settings lists them all, with what each does)
  tovi settings [--json]            every setting, its value, allowed values and what it does
  tovi power [--json]               whole-Mac watts and what to switch off to save more
  tovi power test [--detailed]      lid closed: measure what Tovi saves on this Mac (~4 min; --detailed ~12 min)
  tovi connect [claude|codex|claude-app]   add Tovi's MCP server to your agents
  tovi prompt                       the prompt that has your agent set Tovi up with you
  tovi anyway off                   stop going below the battery limit (allowing it is done in Tovi)
  tovi measure                      estimate what slowing apps saves, in ~7 s
  tovi doctor                       health check: watchdog, permission, what Tovi has changed right now
  tovi rescue                       put back everything Tovi changed, even if the app is stuck
  tovi energy                       apps using the most power right now
  tovi config                       settings (also editable at the printed path)
  tovi open [window]                show the panel or the window
  tovi mcp                          run as an MCP server for Claude

Connect your agents: tovi connect     Then paste: tovi prompt
)TEXT";

const char CLITexts::kPrompt[] =
    R"TEXT(Tovi is installed on this Mac. It keeps the Mac awake with the lid closed while you (and other agents) work, and cuts power use while the lid is shut. You can control all of it through the `tovi` MCP tools (or the `tovi` command). Set it up for me:

1. Call tovi_settings and tovi_power to see every setting and what is using power right now.
2. Ask me, in one short message: which apps must keep running at full speed with the lid shut (music, calls, a local model, Docker...), whether my Mac should stay awake only while agents work or always, and whether I'm OK with a lock screen when I open the lid in exchange for the screen turning fully off (the biggest saving).
3. Apply the strongest savings that don't touch what I named: preset max_battery, pause_simulators, pause_background_audio, low_power, per-app rules with tovi_set_app_rule, and lock_on_close only if I said yes.
4. If my lid is closed, run tovi_power_test and tell me what each saving is worth in watts.
5. From now on, call tovi_keep_awake before long work and tovi_release when it's done.

Never turn off the heat guard or lower the battery limit; Tovi won't let you, and that's on purpose.
)TEXT";

}  // namespace tovi
