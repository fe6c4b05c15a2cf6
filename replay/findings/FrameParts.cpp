#include "replay/findings/FrameParts.h"

#include <algorithm>
#include <numeric>

#include "replay/base/Text.h"
#include "replay/findings/FrameFindings.h"

namespace replay {

namespace {

struct PartText {
    const char* field;
    const char* part;
    const char* cause;
};

// By Part.
constexpr PartText kTexts[kParts] = {
        {"held_ns", "held", "after a hold"},
        {"buffer_ns", "waiting for a buffer", "waiting for a buffer"},
        {"vsync_ns", "waiting for a vsync", "waiting for a vsync"},
        {"timer_ns", "waiting for its timer", "by their own timer"},
        {"stage_ns", "waiting for another thread", "waiting for another thread"},
        {"fence_ns", "waiting for the graphics processor", "waiting for the graphics processor"},
        {"runnable_ns", "waiting for a processor", "for want of a processor"},
        {"running_ns", "at work", "by their own work"},
        {"unknown_ns", "at work or waiting", "by work or waiting, not told apart"},
};

const PartText& textsOf(Part part) {
    return kTexts[static_cast<size_t>(part)];
}

// As captured, whatever the library does: what it holds comes first, and of the rest is left what
// the game did after its thread had come back.
Parts capturedParts(const Frame& before, const Frame& frame, const Road& road) {
    Parts parts = partsBetween(road, before.returnedNs, frame.queuedNs);
    partOf(parts, Part::kHeld) = std::min(before.returnedNs, frame.queuedNs) - before.queuedNs;
    partOf(parts, Part::kUnknown) +=
            frame.intervalNs - std::accumulate(parts.begin(), parts.end(), int64_t{0});
    return parts;
}

Part causeOf(const Frame& frame, int64_t heldBackNs) {
    if (frame.intervalNs - heldBackNs <= frame.periodNs + kLateToleranceNs) return Part::kHeld;
    const auto* longest = std::max_element(frame.parts.begin() + 1, frame.parts.end());
    return static_cast<Part>(longest - frame.parts.begin());
}

}  // namespace

void addParts(Findings& findings, const Capture& capture, const LayerEvents& layer,
              const Run& run) {
    std::vector<Road> roads;
    if (!run.modelled)
        roads = roadsOf(layer, capture.scheduling, producerOf(layer, capture.scheduling));
    for (size_t i = 1; i < findings.frames.size(); ++i) {
        const Frame& before = findings.frames[i - 1];
        Frame& frame = findings.frames[i];
        // Without the hold a captured frame would have come when it was due.
        int64_t heldBackNs = frame.queuedNs - std::max(frame.dueNs, before.queuedNs);
        if (run.modelled) {
            frame.parts = run.roads[i].parts;
            heldBackNs = run.roads[i].heldBackNs;
        } else {
            frame.parts = capturedParts(before, frame, roads[i - 1]);
        }
        if (!frame.late) continue;
        frame.because = causeOf(frame, heldBackNs);
        ++findings.lateBecause[static_cast<size_t>(frame.because)];
    }
}

const char* fieldOf(Part part) {
    return textsOf(part).field;
}

const char* partText(Part part) {
    return textsOf(part).part;
}

std::string describeParts(const Parts& parts) {
    std::string text;
    for (size_t i = 0; i < kParts; ++i) {
        if (parts[i] == 0) continue;
        text += (text.empty() ? "" : ", ") + std::string(kTexts[i].part) + " " + msText(parts[i]);
    }
    return text;
}

const char* causeText(Part because) {
    return textsOf(because).cause;
}

std::string describeCauses(const Findings& findings) {
    std::string text;
    for (size_t i = 0; i < kParts; ++i) {
        if (findings.lateBecause[i] == 0) continue;
        text += format("%s%zu ", text.empty() ? "" : ", ", findings.lateBecause[i]) +
                causeText(static_cast<Part>(i));
    }
    return text;
}

std::string doubtOf(const Findings& findings) {
    const bool misses = findings.reproduction && !findings.reproduction->holds();
    return misses ? " (model misses the capture)" : "";
}

std::vector<Decision> lateFrames(const Findings& findings) {
    std::vector<Decision> late;
    for (size_t i = 0; i < findings.frames.size(); ++i) {
        const Frame& frame = findings.frames[i];
        if (!frame.late) continue;
        Decision line;
        line.timeNs = frame.queuedNs;
        line.what = format("late by %.3f ms, %s", toMs(frame.intervalNs - frame.periodNs),
                           causeText(frame.because));
        line.cause = describeParts(frame.parts);
        line.frame = static_cast<int>(i);
        late.push_back(line);
    }
    return late;
}

}  // namespace replay
