#include "tests/reliability/Player.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "device/CindralLibrary.h"
#include "sim/Digest.h"
#include "sim/Unseen.h"
#include "tests/reliability/Memory.h"
#include "tests/reliability/Surroundings.h"
#include "tests/reliability/Violation.h"

using device::EntryPoint;
using device::StandInDevice;

namespace reliability {

namespace {

constexpr uint64_t kMostSteps = 1'000'000;
constexpr int64_t kMostTimeNs = 24 * 3600 * kSecond;
constexpr uint64_t kTypicalSteps = 600;
constexpr uint64_t kStepsPerCall = 35;  // typically, where an access is one as well
constexpr int kTracked = 2;             // of several games
// The last boost is over, and the monitor has given up.
constexpr int64_t kRestNs = 3 * kSecond;
// With answers under way that take their time.
constexpr int64_t kLongRestNs = 900 * kSecond;

const Trouble kNoTrouble;

class ProgramRun {
  public:
    // Without a watch in real time.
    ProgramRun(const CallProgram& program, Watch* watch, const std::string& library,
               const Trouble& trouble)
          : mProgram(program),
            mWatch(watch),
            mTrouble(trouble),
            mMemory(trouble.memory),
            mLibrary(std::in_place, library) {
        if (mMemory.program.end != 0)
            mMemory.library = codeAround(reinterpret_cast<const void*>(mLibrary->init));
        setShortage(mMemory);
        if (trouble.slowEntryPoint >= 0) setDelay(trouble.slowEntryPoint, trouble.slowNs);
    }

    void run(const std::string& library) {
        sim::setCalm(true);
        begin();
        sim::setCalm(false);
        runThreads();
        if (mProgram.has('c')) sim::setCalm(true);
        if (mWatch && (mProgram.has('s') || mTrouble.passes)) {
            sim::setCalm(true);
            rest();
            if (mTrouble.passes) recover();
            if (worksAsEver()) probe(0);
        }
        sim::sleepFor(mProgram.unloadAfterMs * kMs);
        if (mProgram.has('u')) {
            setDelay(static_cast<int>(EntryPoint::kPerfGetFeedback), mProgram.period * 20 * kMs);
            queue(kGames - 1);
        }
        if (mWatch) mWatch->unloadBegins();
        {
            const sim::Seen seen;
            mLibrary.reset();
        }
        mAllocations = countedAllocations();
        setShortage({});
        if (mWatch) mWatch->unloadEnded();
        if (dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr)
            violate("nothing-after-unload", "the library is still mapped");
    }

    int64_t allocations() const { return mAllocations; }

  private:
    template <typename Call>
    void call(Act act, int layer, Call&& entryPoint) {
        const int64_t startNs = mWatch ? mWatch->callBegins(act, layer) : 0;
        {
            const sim::Seen seen;
            entryPoint();
        }
        if (mWatch) mWatch->callEnds(act, startNs);
    }
    void queue(int layer) {
        call(Act::kQueue, layer, [&] { mLibrary->trackBufferIncrement(layerName(layer)); });
    }
    void consume(int layer, int pending) {
        call(Act::kConsume, layer,
             [&] { mLibrary->trackBufferDecrement(layerName(layer), pending); });
    }
    void vsync() {
        call(Act::kVsync, -1, [&] { mLibrary->trackVsyncSignal(); });
    }
    void setPeriod(int index) {
        call(Act::kPeriod, -1, [&] { mLibrary->setVsyncPeriod(periodNs(index)); });
        if (mWatch) mWatch->periodTold(index);
    }
    void init() {
        bool active = false;
        call(Act::kInit, -1, [&] { active = mLibrary->init(); });
        if (mWatch) mWatch->initAnswered(active);
    }

    void runThreads() {
        std::vector<std::thread> threads;
        bool lost = false;
        for (const auto& ops : mProgram.threads) {
            try {
                threads.emplace_back([&] {
                    const sim::Unseen unseen;
                    perform(ops);
                });
            } catch (const std::system_error&) {
                lost = true;
            }
        }
        for (std::thread& thread : threads) thread.join();
        if (!lost) return;
        if (!mWatch) throw std::runtime_error("no thread for the program: let it have more");
        mWatch->lostOwnThread();
    }

    void begin() {
        if (mProgram.frames == 0) return;
        init();
        setPeriod(mPeriod);
        for (int game = 0; game < std::min(mProgram.games, kTracked); ++game) {
            queue(game);
            sim::sleepFor(kMs);  // for the checker
        }
        // A third comes when the others are active, and would need its time, too, if it got any.
        const int burst = kBurst[mProgram.period];
        playBursts(0, std::min(mProgram.games, kTracked), burst);
        const int others = mProgram.games > kTracked ? 2 * burst : 0;
        playBursts(0, mProgram.games, mProgram.frames - burst + others);
        const bool complete = mProgram.frames >= framesToClose(mProgram.period);
        if (complete && mWatch) mWatch->gamesAreTracked(std::min(mProgram.games, kTracked));
        for (int i = 0; i < mProgram.pending; ++i) {
            for (int game = 0; game < mProgram.games; ++game) consume(game, 1);
        }
    }

    void playBursts(int first, int games, int frames) {
        for (int i = 0; i < frames; ++i) {
            if (i % kBurst[mPeriod] == 0) sim::sleepFor(kBurstIntervalNs);
            for (int game = first; game < first + games; ++game) queue(game);
        }
    }

    void perform(const std::vector<Op>& ops) {
        for (const Op& op : ops) {
            if (op.afterUs > 0) sim::sleepFor(op.afterUs * (kMs / 1000));
            if (mProgram.has('f')) setMood(++mMood);
            perform(op);
        }
    }

    void perform(const Op& op) {
        switch (op.act) {
            case Act::kQueue:
                return queue(op.a);
            case Act::kConsume:
                return consume(op.a, op.b);
            case Act::kVsync:
                return vsync();
            case Act::kPeriod:
                return setPeriod(op.a);
            case Act::kInit:
                return init();
            case Act::kClear:
                return call(Act::kClear, -1, [&] { mLibrary->clearConfigs(); });
            case Act::kDelay:
                return mWatch ? setDelay(op.a, op.b * kMs) : void();  // in real time it is too long
            case Act::kMood:
                return setMood(op.a);
        }
    }

    void setDelay(int entryPoint, int64_t delayNs) {
        StandInDevice::instance().setDelay(static_cast<EntryPoint>(entryPoint), delayNs);
    }

    void rest() {
        if (mProgram.uses(Act::kDelay) || mTrouble.slowEntryPoint >= 0) {
            for (int i = 0; i < device::kEntryPointCount; ++i) setDelay(i, 0);
            sim::sleepFor(kLongRestNs);
        }
        sim::sleepFor(kRestNs);
        mWatch->settled();
    }

    // Whether nothing that the program did may have changed what the game gets for good.
    bool worksAsEver() const {
        // A consumed buffer that meets the end of a play may switch the headroom regulator on after the
        // monitor has switched it off. It then paces the next play, until that has been measured.
        if (kShowsRaces && mProgram.has('p') && mProgram.uses(Act::kConsume)) return false;
        return mProgram.has('s') && mProgram.has('g') && mProgram.failThread == 0 &&
               !mProgram.has('f') && mProgram.isSolo() && !mProgram.uses(Act::kClear) &&
               !mProgram.uses(Act::kMood);
    }

    // What failed does not fail any more. The game is boosted, unless it lacks a thread (its pacing is
    // optional); two new ones have all that games have, and so has the first, when it comes back after
    // they took its place.
    void recover() {
        if (countedAllocations() < mMemory.nth) return;  // left for the unloading
        mMemory.nth = 0;
        setShortage(mMemory);
        if (mProgram.has('g') && mWatch->reached().lostThreads == 0) {
            probe(0, false);
            sim::sleepFor(kRestNs);
        }
        for (const int game : {kFreshGame, kFreshGame + 1, 0}) {
            probe(game);
            sim::sleepFor(kRestNs);
        }
    }

    // However the calls were interleaved, afterwards the game is paced, boosted and released.
    void probe(int game, bool paced = true) {
        mPeriod = 0;
        init();
        // After an unexpected period the one from before it does not count as a new one.
        setPeriod(1);
        setPeriod(mPeriod);
        queue(game);
        sim::sleepFor(kMs);
        playBursts(game, 1, framesToClose(mPeriod));
        if (mProgram.has('p') && paced) probePacing(game);
        if (mProgram.has('g')) probeBoost(game);
    }

    void probePacing(int game) {
        const int64_t periodNs = reliability::periodNs(mPeriod);
        for (int i = 0; i < 31; ++i) consume(game, 1);
        consume(game, 0);
        for (int i = 0; i < 2; ++i) {
            vsync();
            sim::sleepFor(periodNs);
        }
        queue(game);  // takes the release that is there
        vsync();
        const int64_t heldNs = heldBy([&] { queue(game); });
        expect(heldNs >= periodNs / 11 && heldNs <= periodNs / 2 + 1,
               "a buffer is held until its headroom, not " + std::to_string(heldNs) + " ns");
        expect(heldBy([&] { queue(game); }) == periodNs, "without a vsync it is held a period");
    }

    void probeBoost(int game) {
        const int boosts = mWatch->longBoosts();
        sim::sleepFor(100 * kMs);
        expect(mWatch->longBoosts() == boosts + 1, "a layer that stops is boosted for long, once");
        const int releases = mWatch->releases();
        queue(game);
        sim::sleepFor(kMs);  // for the boost thread
        expect(mWatch->releases() > releases, "its next buffer takes the boost back");
    }

    template <typename Call>
    int64_t heldBy(Call&& entryPoint) {
        const int64_t startNs = sim::now();
        entryPoint();
        return sim::now() - startNs;
    }

    static void expect(bool holds, const std::string& what) {
        if (!holds) violate("works-afterwards", "expected: " + what);
    }

    const CallProgram& mProgram;
    Watch* const mWatch;
    const Trouble& mTrouble;
    Shortage mMemory;
    std::optional<device::CindralLibrary> mLibrary;
    int mPeriod = mProgram.period;  // of the bursts
    std::atomic<int> mMood{0};
    int64_t mAllocations = 0;
};

uint64_t stepsExpected(const CallProgram& program) {
    if (!kShowsRaces) return kTypicalSteps;
    size_t calls = 1;
    for (const auto& ops : program.threads) calls += ops.size();
    return calls * kStepsPerCall;
}

sim::Options optionsOf(const CallProgram& program, const sim::Options& schedule,
                       const Trouble& trouble) {
    sim::Options options = schedule;
    options.failThreadCreation = program.failThread;
    options.failLaterThreadCreations = trouble.lastingThreads;
    if (trouble.startTimeNs != 0) options.startTimeNs = trouble.startTimeNs;
    options.stepBudget = kMostSteps;
    options.timeBudgetNs = kMostTimeNs;
    options.expectedSteps = stepsExpected(program);
    options.checkLockOrder = true;
    options.abortOnFailure = false;
    options.checkSignals = true;
    options.onUse = [](const void* object) {
        if (looksFreed(object))
            violate("no-use-after-free", "a lock or a shared field in freed memory is used");
    };
    return options;
}

void add(sim::Digest& record, const device::Event& event) {
    for (const int64_t number :
         {static_cast<int64_t>(event.kind), event.timeNs, static_cast<int64_t>(event.thread),
          static_cast<int64_t>(event.entryPoint), event.takesNs, int64_t{event.priority}})
        record.add(static_cast<uint64_t>(number));
    for (const int argument : event.arguments) record.add(static_cast<uint64_t>(argument));
    for (const auto& text : {event.text, event.defaultValue, event.result, event.tag})
        record.add(text);
}

Reached playOnce(const CallProgram& program, const sim::Options& schedule,
                 const std::string& library, const Trouble* trouble) {
    const Trouble& wrong = trouble != nullptr ? *trouble : kNoTrouble;
    const sim::Options options = optionsOf(program, schedule, wrong);
    const bool spurious = options.schedule == sim::Schedule::kRandom;
    const bool exact = !options.clockJumps;
    Watch watch(program, exact, spurious, trouble != nullptr && !trouble->sound);
    configure(program);
    openServices(wrong.without);
    if (wrong.device) wrong.device(StandInDevice::instance());
    sim::Digest record;
    record.add(schedule.seed);
    StandInDevice::instance().setEventSink([&](const device::Event& event) {
        add(record, event);
        watch.see(event);
        if (wrong.observer) wrong.observer(event);
    });
    Reached reached;
    const sim::Outcome outcome = sim::run(options, [&] {
        const sim::Unseen unseen;
        ProgramRun run(program, &watch, library, wrong);
        run.run(library);
        reached = watch.reached();
        reached.allocations = run.allocations();
        reached.threads = static_cast<int64_t>(sim::threads().size()) - 1;
    });
    StandInDevice::instance().setEventSink({});
    if (!outcome.ok()) violate(invariantOf(outcome.failure), outcome.report);
    StandInDevice::instance().reset();
    record.add(outcome.record);
    record.add(reached.active);
    reached.record = record.value();
    return reached;
}

// Runs it, and compares the memory before and afterwards.
template <typename Run>
auto withoutLeak(bool countsLibrarys, Run run) {
    static const bool sPrepared = (useSmallStacks(), true);
    static_cast<void>(sPrepared);
    static bool sWarm = false;  // the first run builds what stays
    const auto blocks = countsLibrarys ? librarysLiveBlocks : liveBlocks;
    const int64_t before = blocks();
    const auto result = run();
    const int64_t left = blocks() - before;
    if ((sWarm || countsLibrarys) && left != 0)
        violate("no-leak", std::to_string(left) + " blocks more than before the run");
    sWarm = true;
    return result;
}

}  // namespace

sim::Options scheduleOf(uint64_t number) {
    constexpr sim::Schedule kKinds[] = {sim::Schedule::kRandom, sim::Schedule::kPriorityChanges,
                                        sim::Schedule::kFewPreemptions};
    sim::Options options;
    options.seed = number;
    if (number == kUndisturbed) {
        options.clockJumps = false;
        return options;
    }
    options.schedule = kKinds[number % 3];
    options.clockJumps = number / 3 % 2 == 0;
    options.staleForNs = number / 6 % 2 == 0 ? 0 : kStaleForNs;
    return options;
}

Shortage countedMemory() {
    Shortage memory;
    memory.program = codeAround(reinterpret_cast<const void*>(&play));
    memory.device = codeAround(reinterpret_cast<const void*>(&StandInDevice::instance));
    return memory;
}

Reached play(const CallProgram& program, const sim::Options& schedule, const std::string& library,
             const Trouble* trouble) {
    // An observer may keep what it likes.
    const bool counted = trouble != nullptr && trouble->memory.program.end != 0;
    return withoutLeak(counted, [&] { return playOnce(program, schedule, library, trouble); });
}

void playInRealTime(const CallProgram& program, const std::string& library) {
    withoutLeak(false, [&] {
        const sim::Unseen unseen;
        configure(program);
        openServices({});
        ProgramRun(program, nullptr, library, kNoTrouble).run(library);
        StandInDevice::instance().reset();
        return true;
    });
}

}  // namespace reliability
