#pragma once

// cindral-replay as its user runs it, in a folder of its own.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

class Program : public testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/cindral-replay-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        mFolder = pattern;
    }

    void TearDown() override { std::system(("rm -rf " + mFolder).c_str()); }

    std::string path(const std::string& name) const { return mFolder + "/" + name; }

    std::string file(const std::string& name, const std::string& text) const {
        std::ofstream(path(name)) << text;
        return path(name);
    }

    static std::string textOf(const std::string& name) {
        std::ostringstream text;
        text << std::ifstream(name).rdbuf();
        return text.str();
    }

    Result run(const std::string& arguments, const std::string& output = "") const {
        const std::string out = output.empty() ? path("out") : output;
        const std::string command =
                CINDRAL_REPLAY " " + arguments + " >" + out + " 2>" + path("err") + " </dev/null";
        Result result;
        const int status = std::system(command.c_str());
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (output.empty()) result.out = textOf(out);
        result.err = textOf(path("err"));
        return result;
    }

    // The object of a run with everything in it.
    nlohmann::json jsonOf(const std::string& arguments) const {
        const Result result = run(arguments + " --json - --json-events");
        EXPECT_EQ(result.status, 0) << result.err;
        return nlohmann::json::parse(result.out, nullptr, false);
    }

    std::string mFolder;
};
