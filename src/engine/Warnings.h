// The texts of the one warning that the engine shows.
#pragma once

namespace tovi::warnings {

inline constexpr char kHoldRefused[] =
    "macOS refused to switch sleep off, so closing the lid would sleep the Mac. Run Set Up again in Settings › About.";
inline constexpr char kReleasePending[] = "Couldn't switch sleep back on yet; Tovi keeps trying.";
inline constexpr char kPowerChange[] = "macOS didn't keep sleep switched off after the power change";
inline constexpr char kDisplayStuck[] = "Couldn't switch the built-in screen back on. Log out and in to bring it back.";
inline constexpr char kBackupsStuck[] =
    "Couldn't switch Time Machine's automatic backups back on. Run: sudo tmutil enable";
inline constexpr char kScreenLocks[] =
    "macOS locks this Mac when its screen is switched fully off, so Tovi went back to the dark screen (no lock "
    "screen).";
inline constexpr char kWatchdogMissing[] =
    "The safety watchdog isn't running, so a crash wouldn't be cleaned up automatically. Run Set Up again in Settings.";

}  // namespace tovi::warnings
