#include "replay/play/Workloads.h"

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

// A while of one kind. All work is in percent of the vsync period, so that one workload means the
// same at every rate.
struct Stretch {
    int percent;  // the usual frame
    int jitter;   // by how much it varies, up or down
    int every;    // every so many frames come `longFrames` long ones; 0: never
    int longFrames;
    int longPercent;  // what a long one takes
    int frames;       // its length; 0: to the end
};

struct Recipe {
    Workload workload;
    std::vector<Stretch> stretches;  // one after the other, and again
};

const std::vector<Recipe>& recipes() {
    static const std::vector<Recipe> all = {
            {{kDefaultWorkload,
              "half a minute at 60 Hz with what goes wrong in real games, one after the other"},
             {{54, 5, 0, 0, 0, 240},        // the loading screen is done
              {57, 7, 47, 1, 160, 240},     // single late frames
              {72, 12, 97, 1, 275, 480},    // later ones
              {150, 18, 0, 0, 0, 30},       // a scene that is too much
              {66, 9, 0, 0, 0, 330},        // it has caught up
              {12'000, 0, 0, 0, 0, 1},      // one frame takes two seconds
              {30, 4, 131, 1, 125, 479}}},  // a light scene
            {{"light", "a third of the period: room to save power"}, {{33, 3, 0, 0, 0, 0}}},
            {{"steady", "60 % of the period, hardly any jitter"}, {{60, 4, 0, 0, 0, 0}}},
            {{"tight", "92 % of the period, now and then too late"}, {{92, 9, 0, 0, 0, 0}}},
            {{"heavy", "115 % of the period: never in time"}, {{115, 5, 0, 0, 0, 0}}},
            {{"hitches", "60 %, and every 90th frame takes two and a half periods"},
             {{60, 4, 90, 1, 250, 0}}},
            {{"bursts", "60 %, and every 240 frames twelve that take 150 %"},
             {{60, 4, 240, 12, 150, 0}}},
            {{"stall", "60 %, and every 480th frame takes a hundred periods"},
             {{60, 4, 480, 1, 10'000, 0}}},
            {{"alternating", "40 % and 140 % in turn"}, {{40, 2, 2, 1, 140, 0}}},
    };
    return all;
}

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

const Recipe& recipeNamed(const std::string& name) {
    std::string names;
    for (const Recipe& recipe : recipes()) {
        if (name == recipe.workload.name) return recipe;
        names += (names.empty() ? "" : ", ") + std::string(recipe.workload.name);
    }
    throw InputError("--workload " + inQuotes(name) + ": there are " + names);
}

// `index` counts from the beginning of the stretch.
int64_t frameNs(const Stretch& stretch, int index, int64_t periodNs, Noise& noise) {
    // The long ones end each round, so that a run begins with usual frames.
    const bool isLong =
            stretch.every > 0 && index % stretch.every >= stretch.every - stretch.longFrames;
    const int64_t percent = isLong ? stretch.longPercent : stretch.percent;
    return periodNs * percent / 100 + noise.next(periodNs * stretch.jitter / 100);
}

}  // namespace

const std::vector<Workload>& workloads() {
    static const std::vector<Workload> all = [] {
        std::vector<Workload> list;
        for (const Recipe& recipe : recipes()) list.push_back(recipe.workload);
        return list;
    }();
    return all;
}

std::vector<int64_t> workloadNs(const std::string& name, int64_t periodNs, int frames) {
    const std::vector<Stretch>& stretches = recipeNamed(name).stretches;
    Noise noise;
    std::vector<int64_t> work;
    size_t stretch = 0;
    int index = 0;
    for (int i = 0; i < frames; ++i, ++index) {
        if (stretches[stretch].frames > 0 && index == stretches[stretch].frames) {
            stretch = (stretch + 1) % stretches.size();
            index = 0;
        }
        work.push_back(frameNs(stretches[stretch], index, periodNs, noise));
    }
    return work;
}

}  // namespace replay
