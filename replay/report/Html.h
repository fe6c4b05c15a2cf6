#pragma once

// Text of unknown origin made harmless: names and log lines come from captures.

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>

namespace replay {

// For element content and quoted attributes. What is not UTF-8 becomes a replacement character.
std::string escapeHtml(std::string_view text);

// For the inside of a script element: nothing in it can end the element or open a comment.
std::string scriptJson(const nlohmann::json& value);

}  // namespace replay
