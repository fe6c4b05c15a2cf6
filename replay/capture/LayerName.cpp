#include "replay/capture/LayerName.h"

#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr std::string_view kOldPrefix = "SurfaceView - ";
constexpr std::string_view kNewPrefix = "BufferTX - SurfaceView[";
constexpr std::string_view kQueuedPrefix = "QueuedBuffer - SurfaceView[";
constexpr std::string_view kQueueMark = "(BLAST)";

// Far beyond any name that a device makes; a longer one is damage, and costly to match against.
constexpr size_t kMaxCounterChars = 1024;

struct Parts {
    std::string_view window;  // "package/activity"
    std::string_view suffix;  // what stands between the window and the number
    std::string_view number;
};

std::optional<LayerName> assemble(const Parts& parts) {
    const size_t slash = parts.window.find('/');
    if (slash == std::string_view::npos || slash == 0) return std::nullopt;
    const bool digitsOnly = parts.number.find_first_not_of("0123456789") == std::string_view::npos;
    if (parts.number.empty() || !digitsOnly) return std::nullopt;
    const bool marked = parts.suffix.find(kQueueMark) != std::string_view::npos;
    LayerName name;
    name.package = parts.window.substr(0, slash);
    name.layer = "SurfaceView[" + std::string(parts.window) + "]" + std::string(parts.suffix) +
                 (marked ? "" : std::string(kQueueMark)) + "#" + std::string(parts.number);
    return name;
}

}  // namespace

std::optional<LayerName> layerOfCounter(std::string_view counter) {
    if (counter.size() > kMaxCounterChars) return std::nullopt;
    const bool isNew = counter.substr(0, kNewPrefix.size()) == kNewPrefix;
    const bool isOld = counter.substr(0, kOldPrefix.size()) == kOldPrefix;
    const size_t hash = counter.find_last_of('#');
    if ((!isNew && !isOld) || hash == std::string_view::npos) return std::nullopt;
    Parts parts;
    parts.number = counter.substr(hash + 1);
    if (isOld) {
        if (hash <= kOldPrefix.size()) return std::nullopt;
        parts.window = counter.substr(kOldPrefix.size(), hash - kOldPrefix.size());
        return assemble(parts);
    }
    const size_t close = counter.find_last_of(']', hash);
    if (close == std::string_view::npos || close < kNewPrefix.size()) return std::nullopt;
    parts.window = counter.substr(kNewPrefix.size(), close - kNewPrefix.size());
    parts.suffix = counter.substr(close + 1, hash - close - 1);
    return assemble(parts);
}

std::optional<LayerName> layerOfQueuedBuffer(std::string_view counter) {
    const size_t hash = counter.find_last_of('#');
    const size_t close = counter.find_last_of(']', hash);
    const bool isOne = counter.size() <= kMaxCounterChars && startsWith(counter, kQueuedPrefix) &&
                       hash != std::string_view::npos && close >= kQueuedPrefix.size() &&
                       close < hash;
    if (!isOne) return std::nullopt;
    Parts parts;
    parts.window = counter.substr(kQueuedPrefix.size(), close - kQueuedPrefix.size());
    parts.number = counter.substr(hash + 1);
    return assemble(parts);
}

}  // namespace replay
