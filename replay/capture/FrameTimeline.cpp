#include "replay/capture/FrameTimeline.h"

#include <algorithm>
#include <utility>

namespace replay {

namespace {

// Two hours at 240 Hz; what comes after is left out.
constexpr size_t kMaxFrames = 2'000'000;
constexpr size_t kMaxOpen = 10'000;

constexpr const char* kPresents[] = {"not told", "on time", "late", "early", "dropped"};
constexpr int kOnTime = 1;

constexpr std::pair<uint32_t, const char*> kCauses[] = {
        {2, "compositor's scheduling"},
        {4, "vsync prediction"},
        {8, "display"},
        {16, "compositor's processor deadline missed"},
        {32, "compositor's GPU deadline missed"},
        {64, "application deadline missed"},
        {128, "buffer stuffing"},
        {512, "compositor stuffing"},
        {1024, "dropped"},
};

}  // namespace

std::string verdictOf(const TimelineFrame& frame) {
    const bool isKnown = frame.present >= 0 && frame.present < int{std::size(kPresents)};
    std::string text = kPresents[isKnown ? frame.present : 0];
    const char* separator = ": ";
    for (const auto& [bit, cause] : kCauses) {
        if ((frame.jank & bit) == 0) continue;
        text += std::exchange(separator, ", ") + std::string(cause);
    }
    return text;
}

bool isMissed(const TimelineFrame& frame) {
    return frame.present > kOnTime && frame.present < int{std::size(kPresents)};
}

void FrameTimeline::begin(int64_t cookie, TimelineFrame frame) {
    if (mOpen.size() < kMaxOpen) mOpen[cookie] = std::move(frame);
}

void FrameTimeline::end(int64_t timeNs, int64_t cookie) {
    const auto open = mOpen.find(cookie);
    if (open == mOpen.end()) return;
    open->second.endNs = timeNs;
    if (mFrames.size() < kMaxFrames) mFrames.push_back(std::move(open->second));
    mOpen.erase(open);
}

std::vector<TimelineFrame> FrameTimeline::build(int64_t originNs) {
    for (TimelineFrame& frame : mFrames) frame.endNs -= originNs;
    std::stable_sort(mFrames.begin(), mFrames.end(),
                     [](const auto& a, const auto& b) { return a.endNs < b.endNs; });
    return std::move(mFrames);
}

}  // namespace replay
