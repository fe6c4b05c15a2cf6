#pragma once

// What has to hold of a run, whatever the program and the schedule. Each rule has a name; the first
// one that does not hold ends the process through violate(). The names:
//
//   call-returns-in-time   an entry point takes longer than what it may wait for
//   unload-returns-in-time
//   locks-in-service       the service is called under more or fewer locks than it may be
//   who-sends              a thread makes a service call that is not its business
//   signals-under-lock     a condition is signalled without the lock that is waited with
//   published-with-order   a pointer to an object is loaded without the order of its publication
//   destroyed-after-use    a shared field is destroyed without an order after its last use
//   init-answers-alike     two initialisations answer differently though nothing was cleared
//   asked-once             a checker asks about a package that was found to be a game
//   release-taken          a queueing thread stays held though a release came while it queued
//   vsync-turns-headroom   a vsync neither starts nor ends a cycle of the headroom thread
//   known-requests         a hint with arguments that mean nothing
//   values-in-range        headroom, expectation, strength or threshold out of its bounds
//   games-tracked          a game plays and gets no environment
//   two-trackers           more threads than two trackers have
//   quiet-without-debug    a debug line or a trace section without the debug switch
//   sections-balanced      a trace section ends that had not begun, or never ends
//   hint-per-checkpoint    more boosts than checkpoints were missed
//   long-boost-released    a buffer came and the long boost was not taken back
//   regulator-off-in-silence  a layer is silent and its frame regulator stays on
//   regulator-knows-period    a headroom regulator paces by another period than the last one told
//   nothing-after-unload   something is sent, or a thread left, after the library has gone
//
// Bounds on time are looked at only in runs whose clock overtakes no thread that can run.

#include <array>
#include <set>
#include <string>
#include <vector>

#include "device/StandInDevice.h"
#include "sim/Simulation.h"
#include "tests/reliability/CallProgram.h"

namespace reliability {

// The name of the invariant that a failure of the simulation violates.
const char* invariantOf(sim::Failure failure);

// How far a run came: a search that never reaches what it looks for finds nothing.
struct Reached {
    bool environment = false;
    bool boost = false;
    bool longBoost = false;
    bool hold = false;  // a queueing thread was held
    bool retirement = false;

    unsigned calledEntryPoints = 0;  // a bit for each
    bool active = false;             // what the latest initialisation answered
    bool lostOwnThread = false;      // the thread that could not be created was the program's
    int lostThreads = 0;             // of the library, as it says itself
    int64_t threads = 0;             // created by program and library
    int64_t allocations = 0;         // by the library, where they are counted
    uint64_t record = 0;             // a digest of all that could be seen

    static constexpr int kCount = 5;
    std::array<bool, kCount> all() const {
        return {environment, boost, longBoost, hold, retirement};
    }
    static const std::array<const char*, kCount>& names();
};

// For one run; every member is called by threads of it, the sink by the device.
class Watch {
  public:
    // `unexpecting`: the device is in such a state that nothing but safety can be expected.
    Watch(const CallProgram& program, bool exactTimes, bool spuriousWakes, bool unexpecting);

    void see(const device::Event& event);

    // Around every call of an entry point. `layer` is -1 where none is named.
    int64_t callBegins(Act act, int layer);
    void callEnds(Act act, int64_t startNs);
    void initAnswered(bool active);
    void periodTold(int index);
    void lostOwnThread() { mReached.lostOwnThread = true; }

    // So many games have played long enough for their environments, undisturbed.
    void gamesAreTracked(int games) const;
    // The compositor's threads have ended, and everything had time to come to rest.
    void settled();
    void unloadBegins();
    void unloadEnded();

    int longBoosts() const { return mLongBoosts; }
    int releases() const { return mReleases; }
    const Reached& reached() const { return mReached; }

  private:
    struct Served {
        int64_t startNs;
        int64_t endNs;
    };

    bool mayForget() const {
        return mProgram.uses(Act::kClear) || mProgram.uses(Act::kMood) || mProgram.has('f') ||
               mUnexpecting;
    }
    bool mustBeQuiet() const { return !mProgram.has('d') && !mUnexpecting; }
    void seeCall(const device::Event& event);
    void seeQuestion(const device::Event& event);
    void seeHint(const device::Event& event);
    void seeLog(const device::Event& event);
    void seeSection(const device::Event& event);
    void seeMarker(const std::string& text);
    void seeRelease();
    void vsyncIsServed();
    void followQueueing(const std::string& text);
    void checkSender(const device::Event& event, size_t held) const;
    int64_t servedWithin(int64_t startNs, int64_t endNs) const;
    void checkTrackerThreads() const;

    const CallProgram& mProgram;
    const bool mExactTimes;
    const bool mSpuriousWakes;
    const bool mUnexpecting;
    const bool mSolo;
    const bool mFollowsPeriod;
    struct Call {
        char letter = '\0';       // of the entry point that the thread is in, or 0
        int64_t endedBefore = 0;  // increments
    };
    std::vector<Call> mCalls;  // by thread
    int64_t mBegunIncrements = 0;
    int64_t mEndedIncrements = 0;
    std::vector<int> mOpenSections;
    std::vector<Served> mServed;
    std::set<std::string> mGames;  // packages that the service called so
    int mRegulators = 0;           // that were said to go on and not to go off
    Reached mReached;
    int mEnvironments = 0;
    int mMissedCheckpoints = 0;
    int mBoostsHandled = 0;
    int mLongBoosts = 0;
    int mReleases = 0;
    bool mRegulatorOn = false;
    int64_t mVsyncNs = -1;  // of the latest vsync for the regulator, till the next moment
    int64_t mTurns = 0;     // of the headroom thread: beginnings and ends of cycles
    int64_t mTurnsAtVsync = 0;
    int64_t mToldPeriodNs = -1;   // the last good one
    int64_t mPacedPeriodNs = -1;  // the headroom regulator's
    int64_t mLongBoostNs = -1;    // when the one in force was sent
    bool mReleaseDue = false;
    int64_t mQueuedNs = -1;        // since when the game's thread may be held
    int64_t mReleasedNs = -1;      // the first release since then
    bool mReleaseIsSpent = false;  // the next one
    bool mInitAnswered = false;
    int64_t mUnloadNs = 0;
    bool mGone = false;
};

}  // namespace reliability
