#include "tests/reliability/Shrink.h"

#include "tests/reliability/Player.h"

namespace reliability {

bool fails(const Case& first, uint64_t schedules, const std::string& library, Finding& finding) {
    Worker worker([&](Report& report) {
        for (uint64_t i = 0; i < schedules; ++i) {
            Worker::begins(report, first.schedule + i);
            play(first.program, first.schedule + i, library);
        }
    });
    return !worker.wait(finding);
}

namespace {

// A smaller program meets its failure under another schedule; so many are tried.
constexpr uint64_t kSchedulesPerTry = 60;

class Shrinker {
  public:
    Shrinker(const Case& first, const std::string& invariant, const std::string& library)
          : mBest(first), mInvariant(invariant), mLibrary(library) {}

    Case run() {
        while (dropThreads() || dropOps() || simplify()) {
        }
        return mBest;
    }

  private:
    bool accepts(const Program& program) {
        Finding finding;
        if (!fails({program, mBest.schedule}, kSchedulesPerTry, mLibrary, finding)) return false;
        if (finding.invariant != mInvariant) return false;
        mBest = {program, finding.at};
        return true;
    }

    bool dropThreads() {
        for (size_t i = 0; i < mBest.program.threads.size(); ++i) {
            Program smaller = mBest.program;
            smaller.threads.erase(smaller.threads.begin() + static_cast<std::ptrdiff_t>(i));
            if (accepts(smaller)) return true;
        }
        return false;
    }

    // Long stretches first, from the end of each thread.
    bool dropOps() {
        for (size_t length = 8; length > 0; length /= 2) {
            for (size_t thread = 0; thread < mBest.program.threads.size(); ++thread) {
                if (dropOpsOf(thread, length)) return true;
            }
        }
        return false;
    }

    bool dropOpsOf(size_t thread, size_t length) {
        const size_t size = mBest.program.threads[thread].size();
        for (size_t end = size; end >= length; end -= length) {
            Program smaller = mBest.program;
            auto& ops = smaller.threads[thread];
            const auto last = ops.begin() + static_cast<std::ptrdiff_t>(end);
            ops.erase(last - static_cast<std::ptrdiff_t>(length), last);
            if (accepts(smaller)) return true;
        }
        return false;
    }

    bool simplify() {
        for (const char feature : std::string("fntsu")) {
            if (!mBest.program.has(feature)) continue;
            Program smaller = mBest.program;
            smaller.features.erase(smaller.features.find(feature), 1);
            if (accepts(smaller)) return true;
        }
        for (int Program::*field :
             {&Program::pending, &Program::unloadAfterMs, &Program::failThread}) {
            if (mBest.program.*field == 0) continue;
            Program smaller = mBest.program;
            smaller.*field = 0;
            if (accepts(smaller)) return true;
        }
        return false;
    }

    Case mBest;
    const std::string mInvariant;
    const std::string& mLibrary;
};

}  // namespace

Case shrink(const Case& first, const std::string& invariant, const std::string& library) {
    return Shrinker(first, invariant, library).run();
}

}  // namespace reliability
