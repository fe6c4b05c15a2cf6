#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/Choices.h"
#include "sim/Simulation.h"
#include "sim/Thread.h"

namespace sim {

// Decides who runs next. A pure function of the schedule, the seed and the questions asked so far;
// integer arithmetic only, so that a seed means the same run on every machine.
//
// A random schedule draws one of three ways to choose: any ready thread at every step (short
// races), mostly the running one (long undisturbed stretches), or always the ready thread of the
// highest random priority, demoted now and then (whole threads starve). It also draws how often the
// clock jumps although threads could run, and how often a condition wakes without a signal.
//
// The schedules of few switches draw beforehand at which steps of the run they happen: most faults
// need two or three switches at the right places, and then their places are found sooner than among
// the many switches of a random schedule.
//
// Where loads may be late, half of the schedules draw when one is. In the others whatever certain
// threads load from certain cells is always as late as it may be: what goes wrong when a store is
// seen late seldom does so by a single load.
//
// The systematic schedule asks for every choice in turn. It is that of first come but for so many
// departures: the turn is taken away, another than the longest waiting thread comes next, or the clock
// moves though threads could run, after which any of them may come next. Conditions never wake
// without a signal.
class Strategy {
  public:
    explicit Strategy(const Options& options);

    bool disturbs() const { return mKind != Kind::kFirstCome && !mCalm; }
    void setCalm(bool calm) { mCalm = calm; }
    // Before the questions about one step.
    void beginStep();
    bool jumpsClock(bool hasDeadline);
    bool wakesSpuriously() { return chance(mSpuriousPpm); }
    size_t below(size_t limit);

    // Threads are added in the order of their ids.
    void addThread();
    // An index into `ready`, or ready.size() for `current` to go on. `current` is null if it
    // cannot.
    size_t choose(const std::vector<Thread*>& ready, const Thread* current);

    // In [0, ages): how many stores the thread's load of the cell goes back.
    size_t chooseAge(size_t ages, const Thread& thread, size_t cell);

    std::string describe() const;

  private:
    enum class Kind {
        kFirstCome,
        kUniform,
        kSticky,
        kPriorities,
        kPriorityChanges,
        kFewPreemptions,
        kAll
    };

    uint64_t draw();
    bool chance(uint32_t ppm) { return below(1'000'000) < ppm; }
    size_t chooseSticky(const std::vector<Thread*>& ready, const Thread* current);
    void drawRandom();
    void drawFewSwitches();
    void drawStaleLoads();
    std::vector<uint64_t> drawSteps(size_t most);
    bool isDue(std::vector<uint64_t>& steps);
    size_t chooseNext(size_t ready, bool mayStay);
    bool isAlwaysLate(const Thread& thread, size_t cell) const;
    size_t chooseByPriority(const std::vector<Thread*>& ready, const Thread* current, bool demotes);
    size_t highest(const std::vector<Thread*>& ready, const Thread* current) const;

    Kind mKind = Kind::kFirstCome;
    bool mCalm = false;
    uint64_t mState;
    uint64_t mSeed;
    uint32_t mChangePpm = 0;  // kSticky: of leaving the running thread; kPriorities: of a demotion
    uint32_t mJumpPpm = 0;
    uint32_t mSpuriousPpm = 0;
    uint32_t mStalePpm = 0;
    uint64_t mLatePairs = 0;  // one in so many pairs of a thread and a cell; 0: none
    uint64_t mExpectedSteps;
    uint64_t mStep = 0;
    std::vector<uint64_t> mSwitches;    // steps that are left, the next one last
    std::vector<uint64_t> mJumps;       // likewise
    std::vector<uint64_t> mStaleLoads;  // likewise
    std::vector<int64_t> mPriorities;   // by thread id, the greater the sooner
    int64_t mLowestPriority = -1;       // below all that were drawn; every demotion goes lower
    Choices* mChoices;                  // kAll
    bool mJumped = false;               // in this step, which has paid for a switch
    bool mClockJumps;
    int mDeparturesLeft;
    int mStaleLoadsLeft;
};

}  // namespace sim
