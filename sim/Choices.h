#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

// All ways through a tree of choices, one in each run, depth first. A run asks for every choice it
// comes to; it must come to the same ones as long as it gets the same answers.
//
//     Choices choices;
//     do run(choices); while (choices.next());
class Choices {
  public:
    // Its memory is there before the first run, for those who count a run's.
    Choices() { mPath.reserve(1); }

    // In [0, options), for options > 0. What has not been chosen before begins with 0.
    size_t choose(size_t options) {
        if (mTaken == mPath.size()) mPath.push_back({0, options});
        return mPath[mTaken++].option;
    }

    // On to the next way; false if there is none left.
    bool next() {
        while (!mPath.empty() && mPath.back().option + 1 == mPath.back().options) mPath.pop_back();
        mTaken = 0;
        if (mPath.empty()) return false;
        ++mPath.back().option;
        return true;
    }

  private:
    struct Choice {
        size_t option;
        size_t options;
    };
    std::vector<Choice> mPath;
    size_t mTaken = 0;
};

}  // namespace sim
