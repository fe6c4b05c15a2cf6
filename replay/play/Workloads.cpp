#include "replay/play/Workloads.h"

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

// All work is in percent of the vsync period, so that one workload means the same at every rate.
struct Shape {
    Workload workload;
    int percent;  // the usual frame
    int jitter;   // by how much it varies, up or down
    int every;    // every so many frames come `longFrames` long ones; 0: never
    int longFrames;
    int longPercent;  // what a long one takes
};

constexpr Shape kShapes[] = {
        {{"light", "a third of the period: room to save power"}, 33, 3, 0, 0, 0},
        {{"steady", "60 % of the period, hardly any jitter"}, 60, 4, 0, 0, 0},
        {{"tight", "92 % of the period, now and then too late"}, 92, 9, 0, 0, 0},
        {{"heavy", "115 % of the period: never in time"}, 115, 5, 0, 0, 0},
        {{"hitches", "60 %, and every 90th frame takes two and a half periods"}, 60, 4, 90, 1, 250},
        {{"bursts", "60 %, and every 240 frames twelve that take 150 %"}, 60, 4, 240, 12, 150},
        {{"stall", "60 %, and every 480th frame takes a hundred periods"}, 60, 4, 480, 1, 10'000},
        {{"alternating", "40 % and 140 % in turn"}, 40, 2, 2, 1, 140},
};

// A fixed sequence; the standard distributions differ between libraries.
class Noise {
  public:
    // Evenly from -range to range.
    int64_t next(int64_t range) {
        mState = mState * 6364136223846793005u + 1442695040888963407u;
        return static_cast<int64_t>((mState >> 33) % static_cast<uint64_t>(2 * range + 1)) - range;
    }

  private:
    uint64_t mState = 7;
};

const Shape& shapeNamed(const std::string& name) {
    std::string names;
    for (const Shape& shape : kShapes) {
        if (name == shape.workload.name) return shape;
        names += (names.empty() ? "" : ", ") + std::string(shape.workload.name);
    }
    throw InputError("--workload " + inQuotes(name) + ": there are " + names);
}

}  // namespace

const std::vector<Workload>& workloads() {
    static const std::vector<Workload> all = [] {
        std::vector<Workload> list;
        for (const Shape& shape : kShapes) list.push_back(shape.workload);
        return list;
    }();
    return all;
}

std::vector<int64_t> workloadNs(const std::string& name, int64_t periodNs, int frames) {
    const Shape& shape = shapeNamed(name);
    Noise noise;
    std::vector<int64_t> work;
    for (int i = 0; i < frames; ++i) {
        // The long ones end each round, so that a run begins with usual frames.
        const bool isLong = shape.every > 0 && i % shape.every >= shape.every - shape.longFrames;
        const int64_t jitterNs = periodNs * shape.jitter / 100;
        const int64_t percent = isLong ? shape.longPercent : shape.percent;
        work.push_back(periodNs * percent / 100 + noise.next(jitterNs));
    }
    return work;
}

}  // namespace replay
