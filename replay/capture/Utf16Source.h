#pragma once

#include "replay/capture/Format.h"

namespace replay {

// Text or a page as some shells save it when output is redirected: two bytes a character, after a
// mark that tells their order. What comes out is UTF-8.
extern const Format kUtf16Format;

}  // namespace replay
