#pragma once

#include <chrono>
#include <functional>

#include "life/EventStream.h"

namespace KR {

/// A life under pressure: keys raised by several threads, services that take their time or fail,
/// activities that end when they like, and somebody who asks the life service for this and that.
///
/// Of an engine that is broken, one hit list in `lostOneIn` is lost before anybody hears of it; 0
/// for none. `begin` is called before anything happens, and may follow the stream, which goes at
/// the end.
void liveUnderPressure(std::chrono::milliseconds duration, unsigned seed,
                       const std::function<void(EventStream&)>& begin, unsigned lostOneIn = 0);

}  // namespace KR
