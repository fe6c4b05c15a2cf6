#pragma once

// Of what the interval before each frame consisted, and why a late one was late.

#include <string>

#include "replay/findings/Findings.h"

namespace replay {

// After addFrames().
void addParts(Findings& findings, const Capture& capture, const LayerEvents& layer, const Run& run);

// "held_ns", for data.
const char* fieldOf(Part part);

// "waiting for a buffer", for people.
const char* partText(Part part);

// "held 8.346 ms, at work 10.020 ms"; what took no time is left out.
std::string describeParts(const Parts& parts);

// "after a hold", "by their own work"
const char* causeText(Part because);

// "27 after a hold, 7 by their own work"
std::string describeCauses(const Findings& findings);

// " (model misses the capture)" if that is so; otherwise empty.
std::string doubtOf(const Findings& findings);

// The late frames, each with its cause and its parts, to stand among the decisions.
std::vector<Decision> lateFrames(const Findings& findings);

}  // namespace replay
