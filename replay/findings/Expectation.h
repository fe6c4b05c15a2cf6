#pragma once

// What the library did and when, small enough to be kept beside a capture, and the differences when
// a later library does something else.

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "replay/findings/Findings.h"

namespace replay {

// A hint or a lock, a hold of the queueing thread, a marker or a log line. Answers and handles, which
// only number the calls, are left out, and so are questions.
struct ExpectedEvent {
    int64_t timeNs = 0;
    int frame = kNoFrame;  // the last one that was queued
    std::string text;

    bool operator==(const ExpectedEvent& other) const {
        return timeNs == other.timeNs && text == other.text;
    }
};

struct Expectation {
    std::string layer;
    std::vector<std::string> options;  // of the program, which make the same run again
    std::vector<ExpectedEvent> events;
};

std::vector<ExpectedEvent> expectedEvents(const Findings& findings, const Run& run);

void writeExpectation(std::ostream& out, const Expectation& expectation);
// Whether a file that begins so is one, of whatever version.
bool isExpectation(std::string_view firstBytes);
// Throws InputError, with `name` for the file; also for one of another version.
Expectation readExpectation(std::istream& in, const std::string& name);

// One line a difference, in order of time; empty if there is none.
std::vector<std::string> differencesOf(const std::vector<ExpectedEvent>& expected,
                                       const std::vector<ExpectedEvent>& actual);

}  // namespace replay
