#include "replay/findings/DecisionLog.h"

#include <algorithm>
#include <string>
#include <vector>

#include "replay/base/Text.h"
#include "replay/findings/FrameParts.h"

namespace replay {

namespace {

struct Line {
    int64_t timeNs;
    int frame;
    std::string what;
    std::string cause;
};

void addSwitches(std::vector<Line>& lines, const Regulator& regulator, const char* name) {
    for (const RegulatorSwitch& change : regulator.switches) {
        lines.push_back({change.timeNs, kNoFrame, std::string(name) + (change.on ? " on" : " off"),
                         change.reason});
    }
}

std::string frameText(int frame) {
    return frame == kNoFrame ? "" : std::to_string(frame);
}

}  // namespace

void writeDecisionLog(std::ostream& out, const Findings& findings) {
    std::vector<Line> lines;
    for (const Decision& decision : findings.log) {
        lines.push_back(
                {decision.timeNs, decision.frame, onOneLine(decision.what), decision.cause});
    }
    for (const Decision& late : lateFrames(findings))
        lines.push_back({late.timeNs, late.frame, late.what, late.cause});
    addSwitches(lines, findings.frameRegulator, "frame regulator");
    addSwitches(lines, findings.headroomRegulator, "headroom regulator");
    std::stable_sort(lines.begin(), lines.end(),
                     [](const Line& a, const Line& b) { return a.timeNs < b.timeNs; });
    out << format("%14s  %7s  %-44s  %s\n", "seconds", "frame", "what", "because");
    for (const Line& line : lines) {
        out << alignedSeconds(line.timeNs)
            << format("  %7s  %-44s  ", frameText(line.frame).c_str(), line.what.c_str())
            << line.cause << '\n';
    }
}

}  // namespace replay
