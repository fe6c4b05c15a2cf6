#pragma once

// What the user says about how long a game works on each frame. Pure functions; times in ns.

#include <cstdint>
#include <string>
#include <vector>

#include "replay/game/Make.h"

namespace replay {

struct WorkEstimator {
    enum class Kind {
        kInferred,  // nothing: what the capture tells
        kInterval,
        kPercent,
        kFixed,
    };

    Kind kind = Kind::kInferred;
    double amount = 0;  // kPercent: percent; kFixed: ms

    std::string name() const;  // as the user writes it
};

// "inferred", "interval", "percent:60", "fixed:8.5". Throws InputError.
WorkEstimator parseWorkEstimator(const std::string& text);

// The ones that need no figure, to show how far an answer depends on the choice.
std::vector<WorkEstimator> allWorkEstimators();

// Puts what the user says in the place of what was inferred.
void applyEstimator(const WorkEstimator& estimator, const LayerEvents& layer, int64_t periodNs,
                    std::vector<FrameWork>& work);

}  // namespace replay
