#pragma once

#include "life/Event.h"
#include "platform/vo/Future.h"
#include "platform/vo/Value.h"

namespace KR {

class LifeService;

/// Asks a life service for what somebody asked for there. std::runtime_error for a method that it
/// does not have, or arguments that it does not take.
void callLife(LifeService& life, const LifeAsked& asked);

/// Ends a request with an answer that was recorded.
void keepPromise(const vo::Promise<vo::Value>& promise, const Answer& answer);

}  // namespace KR
