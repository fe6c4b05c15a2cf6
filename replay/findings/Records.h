#pragma once

// The things that findings are lists of. Times are ns since the first event of the capture.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "replay/game/Road.h"

namespace replay {

constexpr int kNoFrame = -1;

// One queued buffer.
struct Frame {
    enum class Hold { kNone, kRelease, kAccumulation };

    int64_t dueNs = 0;       // as captured; in a modelled run the moment the work was done
    int64_t queuedNs = 0;    // the queue call came in, and the compositor can take the buffer
    int64_t returnedNs = 0;  // the queue call let its thread go
    std::optional<int64_t> latchedNs;  // the compositor took it; empty: not before the end
    std::optional<int64_t> shownNs;    // the vsync at which it came on the screen
    int shownLateVsyncs = 0;           // after the vsync it was meant for; below 0: before it
    int64_t periodNs = 0;              // of the display meanwhile, the longest
    int64_t intervalNs = 0;            // since the buffer before was queued; 0 for the first
    int64_t renderNs = 0;  // since the queue call before returned, what the library measures
    int pending = 0;       // buffers in the queue with this one
    int lateVsyncs = 0;    // whole vsyncs by which the interval exceeds one period, see Findings
    bool late = false;     // the interval exceeds one period by more than 2 ms
    Hold hold = Hold::kNone;
    int phone = kNoFrame;           // what the phone said of it, in Findings::phone
    Parts parts{};                  // of the interval, to the nanosecond
    Part because = Part::kUnknown;  // of a late frame: the part that made it so

    int64_t heldNs() const { return returnedNs - queuedNs; }
    int64_t delayNs() const { return queuedNs - dueNs; }  // its thread was not there in time
};

// A rise of clocks that was asked for.
struct BoostRecord {
    enum class End { kReleased, kReplaced, kLapsed, kRunEnded };

    int64_t beginNs = 0;
    int64_t endNs = 0;
    int checkpoint = 0;  // 1 to 3
    int durationMs = 0;  // as sent
    int type = 0;        // as sent
    End end = End::kLapsed;
    int frame = kNoFrame;  // the last one that was queued before
};

struct ReleaseRecord {
    int64_t timeNs = 0;
    bool wasBoosted = false;  // false: there was nothing left to take back
    int frame = kNoFrame;
};

// A fall of clocks that was asked for, at one strength.
struct NegativeBoostRecord {
    int64_t beginNs = 0;
    int64_t endNs = 0;
    int strength = 0;  // percent; 0 is sent as well, as a refresh
};

struct NegativeReleaseRecord {
    int64_t timeNs = 0;
    bool byMissedFrame = false;  // false: the frame took longer than the target
};

// A feature of the service switched off while that costs no frames.
struct LockSpan {
    int64_t beginNs = 0;
    int64_t endNs = 0;
    bool released = true;  // false: still held when the run ended
};

struct RegulatorSwitch {
    int64_t timeNs = 0;
    bool on = false;
    std::string reason;
};

struct Regulator {
    std::vector<RegulatorSwitch> switches;
    std::vector<std::pair<int64_t, int64_t>> spans;  // while it was on
    int64_t onNs = 0;
};

// nearest-rank percentiles
struct Distribution {
    size_t count = 0;
    int64_t p50 = 0;
    int64_t p90 = 0;
    int64_t p95 = 0;
    int64_t p99 = 0;
    int64_t max = 0;
    int64_t total = 0;

    double mean() const {
        return count == 0 ? 0 : static_cast<double>(total) / static_cast<double>(count);
    }
};

// What the player saw.
struct Screen {
    size_t pictures = 0;
    size_t inTime = 0;    // came at the vsync they were meant for, see Frame::shownLateVsyncs
    size_t repeated = 0;  // vsyncs that showed the old picture again
    // Pictures a second while the longest hundredth, the longest thousandth of them stood.
    double onePercentLow = 0;
    double tenthPercentLow = 0;
    // How far the time between two pictures was from the time between their frames.
    Distribution animationErrorNs;
};

// Why something was not used in the whole run; empty if it was, or if the library does not tell
// whether it was.
struct Never {
    std::string environment;
    std::string frameRegulator;
    std::string headroomRegulator;
    std::string negativeBoost;
    std::string plOff;
    std::string coreControlOff;
};

struct Stutter {
    int64_t timeNs = 0;
    int vsyncs = 0;  // between two buffers that were taken, rounded; two or more
};

struct Sample {
    int64_t timeNs = 0;
    double value = 0;
};

struct Pingpong {
    enum class Kind { kPowerOptimization, kNegativeBoost };

    int64_t timeNs = 0;
    Kind kind = Kind::kPowerOptimization;
};

// One call of the performance service beside what caused it.
struct Decision {
    int64_t timeNs = 0;
    int thread = 0;
    std::string what;   // the call, for instance "perf_hint(4166, (null), 8, 1500) = 1"
    std::string cause;  // for instance "checkpoint 1: no buffer for 16.696 ms"; may be empty
    int frame = kNoFrame;
    bool isAction = false;  // a hint or a lock; otherwise a question
};

const char* toString(Frame::Hold hold);
const char* toString(BoostRecord::End end);
const char* toString(Pingpong::Kind kind);

}  // namespace replay
