#pragma once

// What the library sent and when, small enough to be kept beside a capture, and the differences
// when a later library sends something else.

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "replay/findings/Findings.h"

namespace replay {

struct ExpectedCall {
    int64_t timeNs = 0;
    std::string text;  // without answers and handles, which only number the calls

    bool operator==(const ExpectedCall& other) const {
        return timeNs == other.timeNs && text == other.text;
    }
};

struct Expectation {
    std::string layer;
    std::vector<std::string> options;  // of the program, which make the same run again
    std::vector<ExpectedCall> calls;   // hints and locks; questions are left out
};

std::vector<ExpectedCall> expectedCalls(const Run& run);

void writeExpectation(std::ostream& out, const Expectation& expectation);
// Throws InputError, with `name` for the file.
Expectation readExpectation(std::istream& in, const std::string& name);

// One line a difference, in order of time; empty if there is none.
std::vector<std::string> differencesOf(const std::vector<ExpectedCall>& expected,
                                       const std::vector<ExpectedCall>& actual);

}  // namespace replay
