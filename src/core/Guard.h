// Guards that a test can take out of a copy of the program, to show that it would notice. In the program itself all of
// them stand: there the question is answered while compiling, and nothing of it is left.
#pragma once

namespace tovi {

enum class Guard {
  markerFirst,          // no switch without a marker
  markerUntilReleased,  // a refused release keeps its marker
  markerUntilRescued,   // the watchdog's too
  holdEnd,              // a hold ends with its time
  holdProcess,          // and with its process
  clockFollowed,        // a step of the clock moves what is remembered
  batteryLimit,
  heat,
  safetyAccepted,         // an edit of the settings file loosens nothing
  journalFirst,           // nothing is done to a process that the journal doesn't know
  journalUntilUndone,     // and what can't be undone stays in it
  shield,                 // no application of an agent's is touched
  repair,                 // what couldn't be put back is tried again
  brightnessOfThePerson,  // isn't replaced by the dark of our own
  counters,               // ones that run backwards give no figure
};

#ifdef TOVI_MUTATIONS
bool without(Guard guard);
#else
consteval bool without(Guard) { return false; }
#endif

}  // namespace tovi
