// Times of day as moments to come.
#pragma once

#include "platform/Types.h"

namespace tovi::PanelFormatTime {

// When the clock next shows this whole hour, at least a minute from `now`. Hours outside 0...23 are cut to these.
Date next(int hour, Date now);

}  // namespace tovi::PanelFormatTime
