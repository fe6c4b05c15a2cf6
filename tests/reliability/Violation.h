#pragma once

#include <string>

namespace reliability {

// Ends this process, which a campaign has forked, and tells the campaign which invariant did not
// hold. Any thread; nothing of the process is used any more.
[[noreturn]] void violate(const char* invariant, const std::string& text);

}  // namespace reliability
