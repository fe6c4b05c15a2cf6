#pragma once

// cindral-replay as its user runs it, in a folder of its own.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class Replay : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    std::string path(const std::string& name) const { return mFolder + "/" + name; }
    std::string file(const std::string& name, const std::string& text) const;
    std::string read(const std::string& name) const;

    Result run(const std::string& arguments, const std::string& output = "") const;
    // The object of a run with everything in it.
    nlohmann::json jsonOf(const std::string& arguments) const;
    // The path of what tracing would show of a workload without the library.
    std::string capture(const std::string& name, const std::string& arguments = "") const;

    std::string mFolder;
};
