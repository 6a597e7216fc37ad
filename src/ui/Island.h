// The notch island: a small panel at the top of the screen for announcements of a line or two. It keeps what it
// shows as data; who can draw observes it.
#pragma once

#include <string>

#include "core/Field.h"
#include "platform/MainQueue.h"

namespace tovi {

class Island {
 public:
  struct Face {
    std::string title;
    std::string subtitle;
    bool glow = false;
    bool controls = true;  // for a person who opens it; an announcement has none
    bool open = false;

    friend bool operator==(const Face&, const Face&) = default;
  };

  explicit Island(MainQueue& queue) : queue_(queue) {}

  // Starts switched off. Switching it off closes it.
  void setEnabled(bool enabled);
  bool enabled() const { return enabled_; }

  // Opens with these lines and collapses `span` later; an announcement that comes meanwhile takes its place and has
  // its own span. Does nothing while switched off.
  void announce(std::string title, std::string subtitle, bool glow, Seconds span);

  Field<Face> face;

 private:
  void collapse();

  MainQueue& queue_;
  bool enabled_ = false;
  Registration collapse_;
};

}  // namespace tovi
