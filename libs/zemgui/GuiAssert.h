#pragma once
// The GUI's checks report as `Assertion "false" failed. <message>`: the message names the
// situation, the expression would only repeat it. Evaluates to the condition.
#include "common/system/debug/Log.h"

#define GUI_CHECK(cond, msg) (static_cast<bool>(cond) ? true : ZEM_ASSERT(false, msg))
