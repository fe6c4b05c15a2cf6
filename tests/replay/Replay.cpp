#include "tests/replay/Replay.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

std::string textOf(const std::string& name) {
    std::ostringstream text;
    text << std::ifstream(name).rdbuf();
    return text.str();
}

}  // namespace

void Replay::SetUp() {
    char pattern[] = "/tmp/cindral-replay-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    mFolder = pattern;
}

void Replay::TearDown() {
    std::system(("rm -rf " + mFolder).c_str());
}

std::string Replay::file(const std::string& name, const std::string& text) const {
    std::ofstream(path(name)) << text;
    return path(name);
}

std::string Replay::read(const std::string& name) const {
    return textOf(path(name));
}

Result Replay::run(const std::string& arguments, const std::string& output) const {
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

nlohmann::json Replay::jsonOf(const std::string& arguments) const {
    const Result result = run(arguments + " --json - --json-events");
    EXPECT_EQ(result.status, 0) << result.err;
    return nlohmann::json::parse(result.out, nullptr, false);
}

std::string Replay::capture(const std::string& name, const std::string& arguments) const {
    const Result result = run("--no-library --write-capture " + path(name) + " " + arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    return path(name);
}
