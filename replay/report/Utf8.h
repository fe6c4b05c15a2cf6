#pragma once

#include <string>
#include <string_view>

namespace replay {

// With a replacement character for what is not UTF-8: names in a capture may be any bytes.
std::string asUtf8(std::string_view text);

}  // namespace replay
