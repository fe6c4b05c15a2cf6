// The make that a capture with scheduling tells: whom its threads waited for, and how long they
// worked.

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "replay/base/Statistics.h"
#include "replay/game/GamesTold.h"

namespace replay {

namespace {

using Kind = Make::Kind;
using Span = std::pair<int64_t, int64_t>;

// What is waited for less than this share of the time is not what paces the game.
constexpr double kLeastWait = 0.003;
// Calls for a buffer take a while also if one is free. Without the switches of threads it counts
// only as waiting from here on.
constexpr double kLeastDequeue = 0.08;
// A thread that works on the next frame meanwhile does a part of its work beside the road,
constexpr int64_t kLeastBesideShare = 4;
// hands over at least once in so many frames, and is busy for such a part of the time.
constexpr size_t kFramesPerHandOver = 2;
constexpr int64_t kLeastBusyShare = 10;
constexpr int kEarliestPercent = 5;

// When the thread ran or could have.
std::vector<Span> busySpans(ThreadEvents events) {
    std::vector<Span> spans;
    int64_t sinceNs = -1;
    for (const ThreadEvent& event : events) {
        const bool busy = event.kind == ThreadEvent::Kind::kRuns ||
                          event.kind == ThreadEvent::Kind::kPreempted ||
                          event.kind == ThreadEvent::Kind::kWoken;
        if (busy && sinceNs < 0) sinceNs = event.timeNs;
        if (event.kind != ThreadEvent::Kind::kBlocks || sinceNs < 0) continue;
        spans.emplace_back(sinceNs, event.timeNs);
        sinceNs = -1;
    }
    return spans;
}

int64_t total(const std::vector<Span>& spans) {
    int64_t sum = 0;
    for (const auto& [begin, end] : spans) sum += end - begin;
    return sum;
}

std::vector<Span> common(const std::vector<Span>& a, const std::vector<Span>& b) {
    std::vector<Span> both;
    for (size_t i = 0, j = 0; i < a.size() && j < b.size();) {
        const Span span{std::max(a[i].first, b[j].first), std::min(a[i].second, b[j].second)};
        if (span.first < span.second) both.push_back(span);
        ++(a[i].second < b[j].second ? i : j);
    }
    return both;
}

class Measurer {
  public:
    explicit Measurer(const GameEvidence& evidence)
          : mEvidence(evidence), mBeats(evidence.vsyncs), mTimes(evidence.layer.queueTimesNs) {}

    std::optional<Game> measure() {
        for (const Road& road : mEvidence.roads) addTo(mWaits, partsBetween(road, 0, INT64_MAX));
        const auto length =
                static_cast<double>(mTimes.empty() ? 0 : mTimes.back() - mTimes.front());
        const auto share = [&](Part part) {
            return static_cast<double>(partOf(mWaits, part)) / std::max(length, 1.0);
        };
        if (!mEvidence.scheduling.hasSwitches() && share(Part::kBuffer) < kLeastDequeue)
            return std::nullopt;
        if (share(Part::kUnknown) > 0.5 && mEvidence.scheduling.hasSwitches()) return std::nullopt;
        Game game;
        game.measured = true;
        game.make.kind = kindOf(share);
        if (game.make.kind == Kind::kStages) {
            measureStages(game);
        } else {
            measureWork(game);
        }
        fitRule(game.make);
        if (game.make.kind == Kind::kVsync) notePassedVsyncs(game);
        return game;
    }

  private:
    static void addTo(Parts& sum, const Parts& parts) {
        for (size_t i = 0; i < kParts; ++i) sum[i] += parts[i];
    }

    template <typename Share>
    Kind kindOf(Share&& share) {
        if (mEvidence.scheduling.hasSwitches() && findFirstStage()) return Kind::kStages;
        const double vsync = share(Part::kVsync);
        const double timer = share(Part::kTimer);
        if (std::max(vsync, timer) < kLeastWait) return Kind::kBuffer;
        return vsync >= timer ? Kind::kVsync : Kind::kTimer;
    }

    // The thread that hands its work to the producer: one wakes the other, and what it does is not
    // what the producer waits for, or not all of it.
    bool findFirstStage() {
        int64_t most = 0;
        for (const auto& [thread, count] : partners()) {
            if (count * kFramesPerHandOver < mTimes.size()) continue;
            const std::vector<Span> busy = busySpans(mEvidence.scheduling.of(thread));
            const int64_t busyNs = total(common(busy, {{mTimes.front(), mTimes.back()}}));
            const int64_t besideNs = busyNs - onRoads(thread);
            const bool works = kLeastBusyShare * busyNs > mTimes.back() - mTimes.front();
            if (!works || kLeastBesideShare * besideNs < busyNs || besideNs <= most) continue;
            most = besideNs;
            mFirstStage = thread;
            mFirstBusy = busy;
        }
        return mFirstStage >= 0;
    }

    int64_t onRoads(int thread) const {
        int64_t sum = 0;
        for (const Road& road : mEvidence.roads)
            for (const RoadStep& step : road)
                if (step.thread == thread) sum += step.endNs - step.beginNs;
        return sum;
    }

    // Who wakes the producer, unless with a buffer, or is woken by it, and how often.
    std::map<int, size_t> partners() const {
        std::map<int, size_t> wakes;
        const int producer = mEvidence.producer;
        mEvidence.scheduling.forEachWake([&](const ThreadEvent& wake) {
            if (wake.interrupt || wake.other == kIdleThread) return;
            if (wake.other == producer) ++wakes[wake.thread];
            if (wake.thread == producer && !mEvidence.scheduling.isDequeuing(producer, wake.timeNs))
                ++wakes[wake.other];
        });
        return wakes;
    }

    // When the frame began: its last waiting for what paces the game ended, or it followed the one
    // before at once.
    int64_t beginOf(size_t frame, Part pace) const {
        return std::max(mTimes[frame - 1], waitedUntil(frame, pace));
    }

    // The end of the frame's last waiting for that; long ago if there was none.
    int64_t waitedUntil(size_t frame, Part part) const {
        const Road& road = mEvidence.roads[frame - 1];
        int64_t endNs = INT64_MIN;
        for (size_t i = 0; i < road.size(); ++i)
            if (road[i].part == part) endNs = runsAfter(road, i);
        return endNs;
    }

    // Who is woken gets a processor a little later. A frame that need not wait does not lose that time.
    static int64_t runsAfter(const Road& road, size_t step) {
        const bool wakes = step + 1 < road.size() && road[step + 1].part == Part::kRunnable;
        return road[wakes ? step + 1 : step].endNs;
    }

    FrameWork workFrom(size_t frame, int64_t beginNs) const {
        FrameWork work;
        const Road& road = mEvidence.roads[frame - 1];
        work.parts = partsBetween(road, beginNs, mTimes[frame]);
        partOf(work.parts, Part::kBuffer) = 0;
        for (size_t i = 0; i < road.size(); ++i)
            if (road[i].part == Part::kBuffer && road[i].endNs >= beginNs)
                partOf(work.parts, Part::kRunnable) -= runsAfter(road, i) - road[i].endNs;
        for (const int64_t part : work.parts) work.workNs += part;
        if (work.workNs < kMinWorkNs) {
            work.parts = {};
            work.workNs = kMinWorkNs;
            partOf(work.parts, Part::kRunning) = kMinWorkNs;
        }
        return work;
    }

    void measureWork(Game& game) {
        const Part pace = game.make.waitsFor();
        mBegins.push_back(mTimes.front());
        std::vector<int64_t> phases;
        for (size_t i = 1; i < mTimes.size(); ++i) {
            const bool paced = pace != Part::kBuffer;
            const int64_t beginNs = paced ? beginOf(i, pace) : mTimes[i - 1];
            mBegins.push_back(beginNs);
            game.work.push_back(workFrom(i, beginNs));
            if (beginNs == mTimes[i - 1]) continue;
            phases.push_back(beginNs);
            if (pace == Part::kTimer) game.work.back().timerNs = beginNs - mBegins[i - 1];
        }
        if (game.make.kind == Kind::kVsync) fitPhases(game.make, phases);
        if (game.make.kind == Kind::kTimer)
            game.make.timerNs = meanNearMedian(differences(mBegins));
        game.work.insert(game.work.begin(), usualWork(game.work));
        // The first frame began before it was queued.
        if (game.work[1].timerNs > 0) game.work[1].timerNs += game.work[0].workNs;
    }

    // Of the frame that the capture began with nothing is known.
    FrameWork usualWork(const std::vector<FrameWork>& work) const {
        FrameWork usual;
        usual.workNs = std::max(std::min(medianWorkNs(work), mTimes.front()), kMinWorkNs);
        partOf(usual.parts, Part::kUnknown) = usual.workNs;
        return usual;
    }

    void fitPhases(Make& make, const std::vector<int64_t>& times) const {
        for (const int64_t periodNs : mEvidence.vsyncs.periodsNs()) {
            std::vector<int64_t> ofRate;
            for (const int64_t time : times)
                if (isSamePeriod(mBeats.periodAt(time), periodNs)) ofRate.push_back(time);
            fitPhase(make, periodNs, std::move(ofRate));
        }
    }

    // When vsyncs woke it, after the display's own. That is on a circle, which is cut opposite to
    // the first.
    void fitPhase(Make& make, int64_t periodNs, std::vector<int64_t> times) const {
        if (times.empty()) return;
        const auto sinceBeat = [&](int64_t timeNs) {
            const size_t next = mBeats.indexFrom(timeNs);
            return next == 0 ? 0 : timeNs - mBeats.timeNs(next - 1);
        };
        const int64_t cut = sinceBeat(times.front()) - periodNs / 2;
        for (int64_t& time : times)
            time = ((sinceBeat(time) - cut) % periodNs + periodNs) % periodNs;
        const int64_t earliest = percentile(times, kEarliestPercent);
        make.phases.push_back({periodNs, (earliest + cut + periodNs) % periodNs});
        make.wakeDelayNs = std::max(make.wakeDelayNs, percentile(times, 50) - earliest);
    }

    void measureStages(Game& game) {
        int64_t takenNs = mTimes.front();
        std::vector<int64_t> delays;
        mBegins.push_back(takenNs);
        game.work.push_back({});
        for (size_t i = 1; i < mTimes.size(); ++i) {
            int64_t takeNs = mTimes[i - 1];
            const Road& road = mEvidence.roads[i - 1];
            for (size_t step = 0; step < road.size(); ++step) {
                if (road[step].thread != mFirstStage) continue;
                takeNs = runsAfter(road, step);
                delays.push_back(takeNs - road[step].endNs);
            }
            FrameWork work = workFrom(i, takeNs);
            work.firstStageNs = total(common(mFirstBusy, {{takenNs, takeNs}}));
            game.work.push_back(work);
            mBegins.push_back(takeNs);
            takenNs = takeNs;
        }
        game.work.front() = usualWork(game.work);
        game.make.wakeDelayNs = percentile(delays, 50);
    }

    // Of the rule's variants the one that has the frames begin when they did.
    void fitRule(Make& make) const {
        const bool vsync = make.kind == Kind::kVsync;
        int64_t least = INT64_MAX;
        Make best = make;
        for (const int buffers : mEvidence.buffers) {
            const std::vector<int64_t> free = freeTimesNs(mEvidence.layer, buffers);
            for (const int every : vsyncsAFrame(mEvidence.layer, mEvidence.vsyncs)) {
                if (every > 1 && !vsync) break;
                for (int takes = 0; takes <= (vsync ? 1 : 0); ++takes) {
                    Make variant = make;
                    variant.buffers = buffers;
                    variant.everyVsyncs = every;
                    variant.takesMissed = takes == 1;
                    const int64_t missed = missOf(variant, free);
                    if (missed >= least) continue;
                    least = missed;
                    best = variant;
                }
            }
        }
        best.freeDelayNs = freeDelayOf(freeTimesNs(mEvidence.layer, best.buffers));
        make = best;
    }

    // Nothing was to be drawn, or it waited for what the model does not know.
    void notePassedVsyncs(Game& game) const {
        for (size_t i = 1; i < mTimes.size(); ++i) {
            const int64_t periodNs = mBeats.periodAt(mTimes[i]);
            const int64_t ready = readyNs(game.make, mBeats, {}, mTimes[i - 1], mBegins[i - 1]);
            const double after = static_cast<double>(mBegins[i] - ready);
            game.work[i].passedVsyncs = std::llround(after / static_cast<double>(periodNs));
        }
    }

    int64_t missOf(const Make& make, const std::vector<int64_t>& free) const {
        int64_t missed = 0;
        for (size_t i = 1; i < mTimes.size(); ++i) {
            const int64_t ready =
                    make.kind == Kind::kStages
                            ? mBegins[i]
                            : readyNs(make, mBeats, {}, mTimes[i - 1], mBegins[i - 1]);
            const int64_t begin = std::max(mBegins[i], waitedUntil(i, Part::kBuffer));
            missed += std::min(std::abs(std::max(ready, free[i]) - begin), mBeats.periodAt(begin));
        }
        return missed;
    }

    int64_t freeDelayOf(const std::vector<int64_t>& free) const {
        std::vector<int64_t> delays;
        for (size_t i = 1; i < mTimes.size(); ++i) {
            const int64_t endNs = waitedUntil(i, Part::kBuffer);
            if (free[i] > mTimes[i - 1] && endNs > free[i]) delays.push_back(endNs - free[i]);
        }
        return std::min(percentile(delays, 50), mEvidence.vsyncs.periodNs / 2);
    }

    const GameEvidence& mEvidence;
    const Beats mBeats;
    const std::vector<int64_t>& mTimes;
    Parts mWaits{};
    int mFirstStage = -1;
    std::vector<Span> mFirstBusy;
    std::vector<int64_t> mBegins;  // of each frame's work, or its waiting for a buffer
};

}  // namespace

std::optional<Game> measuredGame(const GameEvidence& evidence) {
    if (evidence.producer < 0 || evidence.layer.queueTimesNs.size() < 2) return std::nullopt;
    return Measurer(evidence).measure();
}

std::vector<Game> gamesOf(const GameEvidence& evidence) {
    std::vector<Game> games = guessedGames(evidence);
    const std::optional<Game> measured = measuredGame(evidence);
    if (!measured) return games;
    const auto isThat = [&](const Game& game) { return game.make.kind == measured->make.kind; };
    games.erase(std::remove_if(games.begin(), games.end(), isThat), games.end());
    // What does not follow the rule may hide in work that was not measured as such.
    if (measured->make.kind != Kind::kStages) {
        games.insert(games.begin(), gameUnder(evidence, measured->make));
        games.front().measured = true;
    }
    games.insert(games.begin(), *measured);
    return games;
}

}  // namespace replay
