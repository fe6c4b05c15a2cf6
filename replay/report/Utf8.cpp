#include "replay/report/Utf8.h"

#include <nlohmann/json.hpp>

namespace replay {

// The JSON library knows how to replace what is not UTF-8; this is its way to say so.
std::string asUtf8(std::string_view text) {
    using nlohmann::json;
    const std::string quoted =
            json(std::string(text)).dump(-1, ' ', false, json::error_handler_t::replace);
    return json::parse(quoted).get<std::string>();
}

}  // namespace replay
