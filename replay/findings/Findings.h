#pragma once

// What a run was about, as plain data: what the library did, why, what it cost and what it bought.
// Everything that is printed, compared or drawn is made of this.
//
// Times are ns since the first event of the capture and ascend in every list; negative ones are
// before it. "-1" as a frame index means that no frame was concerned. What the library tells only
// with its debug switch (see Findings::debugSeen) is missing without it: the two regulators'
// switches, series other than queueDepth, ping-pongs, and most causes.

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "replay/capture/Capture.h"
#include "replay/capture/VsyncTrack.h"
#include "replay/findings/Records.h"
#include "replay/findings/Reproduction.h"
#include "replay/play/Run.h"

namespace replay {

struct Findings {
    static constexpr int kCheckpoints = 3;
    static constexpr int kLateClasses = 3;

    // What was replayed, and under which conditions.
    std::string source;
    std::string layer;
    std::vector<std::pair<std::string, std::string>> conditions;  // settings and model, in order
    std::optional<Reproduction> reproduction;                     // of a modelled run of a capture
    std::string damage;      // what the capture lacks; empty if nothing
    int64_t originNs = 0;    // time 0 on the capture's clock
    int64_t durationNs = 0;  // of the capture
    int64_t endNs = 0;       // the library was unloaded
    size_t capturedFrames = 0;
    size_t capturedLatches = 0;
    size_t capturedReplaced = 0;  // buffers that a newer one replaced before they were shown
    Refresh refresh;
    std::string refreshSource;
    size_t continuedVsyncs = 0;
    std::vector<int64_t> vsyncsNs;
    std::vector<int64_t> capturedIntervalsNs;  // of the queued buffers, as captured
    std::vector<std::string> threadNames;      // by Decision::thread

    // The library's state.
    bool withLibrary = true;
    bool modelled = false;            // the game and the compositor reacted
    std::string decision;             // its own words, "[GFAR:1][PHR:1]"
    std::vector<std::string> errors;  // its other lines at error priority
    bool debugSeen = false;
    std::optional<int64_t> environmentNs;  // it began to build its environment for the layer
    Regulator frameRegulator;
    Regulator headroomRegulator;
    Never never;

    // What the player saw.
    Screen screen;

    // What the phone itself said of the layer's frames, if the capture has that.
    std::vector<TimelineFrame> phone;

    // How the frames did, by the library's own notion. `late[n]` counts frames that were late by more
    // than n vsyncs: their interval exceeds (n + 1) periods by more than the library's 2 ms tolerance.
    std::vector<Frame> frames;
    std::array<size_t, kLateClasses> late{};
    std::array<size_t, kParts> lateBecause{};  // by Part
    std::vector<Stutter> stutters;
    Distribution frameTimeNs;  // intervals
    Distribution renderTimeNs;
    Distribution heldNs;
    Distribution latencyNs;      // queue to latch
    std::vector<int> worst;      // indexes of the frames with the longest intervals, worst first
    size_t zeroRenderTimes = 0;  // frames that came with a render time of nothing
    size_t framesHeld = 0;

    // What was sent.
    std::vector<BoostRecord> boosts;
    std::array<size_t, kCheckpoints> boostsByCheckpoint{};
    std::vector<ReleaseRecord> releases;
    // They lapsed, or the run ended. Short ones lapse as a rule; those of the last checkpoint last
    // a second and should be taken back when the frame comes.
    size_t boostsNeverReleased = 0;
    size_t longBoostsNeverReleased = 0;
    int64_t boostedNs = 0;
    std::vector<NegativeBoostRecord> negativeBoosts;
    std::vector<NegativeReleaseRecord> negativeReleases;
    int64_t loweredNs = 0;
    double meanStrength = 0;  // percent, over the time lowered
    std::vector<LockSpan> plOff;
    std::vector<LockSpan> coreControlOff;
    int64_t plOffNs = 0;
    int64_t coreControlOffNs = 0;
    size_t unknownCalls = 0;  // hints and locks that are none of the above

    // The library's quantities over time; each holds its value until the next sample.
    std::vector<Sample> headroomNs;
    std::vector<Sample> coefficient;       // negative boosts: 0 or below, in percent
    std::vector<Sample> threshold;         // share of the period in percent, for negative boosts
    std::vector<Sample> boostExpectation;  // -3 to 3
    std::vector<Sample> measuredFps;
    std::vector<Sample> queueDepth;  // buffers in the layer's queue
    std::vector<Pingpong> pingpongs;

    std::vector<Decision> log;
};

Findings findingsOf(const Capture& capture, const LayerEvents& layer, const VsyncTrack& vsyncs,
                    const Run& run);

// kFigures: one number a question, and the short lists. kEverything: frames, series, hints and the
// log as well. The fields are in docs/json.md.
enum class Detail { kFigures, kEverything };
nlohmann::json toJson(const Findings& findings, Detail detail = Detail::kEverything);

}  // namespace replay
