#include "tests/reliability/SmallPrograms.h"

#include <array>
#include <utility>

#include "tests/reliability/Player.h"

namespace reliability {

namespace {

// One game at 60 Hz that was just measured, with buffers accumulated.
const std::string kPlayed = "gpd 1 71 32 0 0 0 ";

// The release comes 8,333,334 ns after the vsync, and the monitor's deadline a period after a buffer.
const std::array<std::pair<const char*, std::string>, kProtocols> kNamed{{
        {"a vsync against a release", kPlayed + "| v0,0@0 v0,0@8333 | q0,0@8333"},
        {"a buffer against a deadline", kPlayed + "| q0,0@0 q0,0@16666"},
        {"a verdict against a buffer of its layer", kPlayed + "| q1,0@0 | q1,0@0"},
        {"a retirement against an increment",
         "gpd 2 71 0 0 0 0 | q2,0@2000000 q2,0@1000 | q0,0@2001000"},
        {"a period against the regulator's creation",
         "gpds 1 70 0 0 0 0 | q0,0@120000 | p1,0@120000"},
        {"initialisations at once", "gpd 1 0 0 0 0 0 | i0,0@0 | i0,0@0 | i0,0@0"},
        {"an unload against the monitor and the boost thread", kPlayed + "| q0,0@0"},
        {"an unload against the headroom thread", kPlayed + "| v0,0@0"},
        {"an unload against the checker", "gpdu 1 71 32 0 0 0"},
}};

const std::vector<std::string> kCalls = {"q0,0@0", "q1,0@0", "c0,0@0", "c0,1@0",
                                         "v0,0@0", "p1,0@0", "i0,0@0", "x0,0@0"};

}  // namespace

std::vector<SmallProgram> smallPrograms() {
    std::vector<SmallProgram> programs;
    for (const auto& [name, text] : kNamed) programs.push_back({name, parse(text), 2});
    std::vector<std::string> threads;
    for (const std::string& first : kCalls) {
        for (const std::string& second : kCalls) threads.push_back("| " + first + " " + second);
    }
    for (size_t i = 0; i < threads.size(); ++i) {
        for (size_t j = i; j < threads.size(); ++j) {
            const std::string text = threads[i] + " " + threads[j];
            programs.push_back({text, parse("c" + kPlayed + text), 1});
        }
    }
    return programs;
}

sim::Options scheduleOf(const SmallProgram& program, sim::Choices& choices, int lateLoads) {
    sim::Options options;
    options.schedule = sim::Schedule::kAll;
    options.choices = &choices;
    options.departures = program.departures;
    options.staleLoads = lateLoads;
    options.staleForNs = kStaleForNs;
    return options;
}

}  // namespace reliability
