#include "replay/report/TraceExport.h"

#include <algorithm>
#include <map>

#include "replay/base/Text.h"
#include "replay/report/TraceWriter.h"

namespace replay {

namespace {

// Where something stands in the run, as little as can be sorted.
struct Place {
    enum class What : uint8_t { kCallBegin, kCallEnd, kSeen, kSeenInstant, kSectionEnd, kOther };

    int64_t timeNs;
    uint32_t index;
    What what;
};

using Places = std::vector<Place>;
using What = Place::What;

// Puts what one thread did in its order. Calls and what was seen carry only times; where those are
// equal, sections that are still open belong to the call that they began in.
class ThreadWalk {
  public:
    ThreadWalk(const Run& run, const std::vector<uint32_t>& calls,
               const std::vector<uint32_t>& seen, Places& places)
          : mRun(run), mCalls(calls), mSeen(seen), mPlaces(places) {}

    void walk() {
        for (size_t i = 0; i < mCalls.size(); ++i) call(i);
        while (hasSeen()) takeSeen();
        closeSections(mRun.endNs);
    }

  private:
    void call(size_t i) {
        const FedEvent& call = mRun.fed[mCalls[i]];
        while (hasSeen() && seenTimeNs() < call.deliveredNs) takeSeen();
        mPlaces.push_back({call.deliveredNs, mCalls[i], What::kCallBegin});
        const bool isAlone = call.heldNs() == 0 || i + 1 == mCalls.size() ||
                             mRun.fed[mCalls[i + 1]].deliveredNs != call.returnedNs;
        while (hasSeen() && (seenTimeNs() < call.returnedNs ||
                             (seenTimeNs() == call.returnedNs && (isAlone || mDepth > 0)))) {
            takeSeen();
        }
        closeSections(call.returnedNs);
        mPlaces.push_back({call.returnedNs, mCalls[i], What::kCallEnd});
    }

    bool hasSeen() const { return mNext < mSeen.size(); }
    int64_t seenTimeNs() const { return mRun.seen[mSeen[mNext]].timeNs; }

    void takeSeen() {
        const device::Event event = mRun.seen[mSeen[mNext]];
        const uint32_t index = mSeen[mNext++];
        if (event.kind == device::EventKind::kTraceEnd) {
            if (mDepth == 0) return;  // its beginning was not seen
            --mDepth;
            mPlaces.push_back({event.timeNs, index, What::kSectionEnd});
        } else if (event.kind == device::EventKind::kTraceBegin && !endsAtOnce(event)) {
            ++mDepth;
            mPlaces.push_back({event.timeNs, index, What::kSeen});
        } else {
            mPlaces.push_back({event.timeNs, index, What::kSeenInstant});
        }
    }

    // A section that is left at once is a marker. Takes its end as well.
    bool endsAtOnce(const device::Event& begin) {
        if (!hasSeen()) return false;
        const device::Event next = mRun.seen[mSeen[mNext]];
        if (next.kind != device::EventKind::kTraceEnd || next.timeNs != begin.timeNs) return false;
        ++mNext;
        return true;
    }

    void closeSections(int64_t timeNs) {
        for (; mDepth > 0; --mDepth) mPlaces.push_back({timeNs, 0, What::kSectionEnd});
    }

    const Run& mRun;
    const std::vector<uint32_t>& mCalls;
    const std::vector<uint32_t>& mSeen;
    Places& mPlaces;
    size_t mNext = 0;
    int mDepth = 0;
};

struct Span {
    int64_t beginNs;
    int64_t endNs;
    std::string name;
};

// One run's events, its own threads first, then spans and counters made of the findings.
class RunWalk {
  public:
    RunWalk(const TraceRun& source, int process, int firstTrack, TraceWriter& writer)
          : mRun(*source.run),
            mFindings(*source.findings),
            mProcess(process),
            mTrack(firstTrack),
            mWriter(writer) {
        const int64_t firstNs = mRun.fed.empty() ? 0 : mRun.fed.front().deliveredNs;
        mBaseNs = std::max(mFindings.originNs, -firstNs);  // a trace has no negative times
        mWriter.process(process, source.label + ": " + mFindings.layer);
    }

    int walk() {
        threads();
        counters();
        spanTracks();
        return mTrack;
    }

  private:
    int newTrack(TraceTrack::Kind kind, const std::string& name) {
        mWriter.track({kind, mProcess, mTrack, name});
        return mTrack++;
    }

    void threads() {
        std::map<int, std::vector<uint32_t>> calls;
        std::map<int, std::vector<uint32_t>> seen;
        for (uint32_t i = 0; i < mRun.fed.size(); ++i) calls[mRun.fed[i].thread].push_back(i);
        for (uint32_t i = 0; i < mRun.seen.size(); ++i) seen[mRun.seen[i].thread].push_back(i);
        for (const auto& [thread, list] : seen) calls[thread];
        Places places;
        for (const auto& [thread, list] : calls) {
            mThreadTracks[thread] = newTrack(TraceTrack::Kind::kThread, mRun.threadName(thread));
            ThreadWalk(mRun, list, seen[thread], places).walk();
            for (Place& place : places) mTracked.push_back({place, mThreadTracks[thread]});
            places.clear();
        }
        std::stable_sort(mTracked.begin(), mTracked.end(), [](const auto& a, const auto& b) {
            return a.place.timeNs < b.place.timeNs;
        });
        for (const Tracked& item : mTracked) mWriter.event(eventAt(item));
        mTracked = {};
    }

    struct Tracked {
        Place place;
        int track;
    };

    TraceEvent eventAt(const Tracked& item) {
        const auto& [timeNs, index, what] = item.place;
        switch (what) {
            case What::kCallBegin:
                return callBegin(mRun.fed[index], item.track);
            case What::kCallEnd:
            case What::kSectionEnd:
                return make(TraceEvent::Kind::kEnd, item.track, timeNs, "", "");
            default:
                return seenEvent(mRun.seen[index], item.track,
                                 what == What::kSeen ? TraceEvent::Kind::kBegin
                                                     : TraceEvent::Kind::kInstant);
        }
    }

    TraceEvent make(TraceEvent::Kind kind, int track, int64_t timeNs, const char* category,
                    const std::string& name) const {
        TraceEvent event;
        event.kind = kind;
        event.track = track;
        event.timeNs = mBaseNs + timeNs;
        event.category = category;
        event.name = name;
        return event;
    }

    TraceEvent callBegin(const FedEvent& call, int track) const {
        TraceEvent event = make(TraceEvent::Kind::kBegin, track, call.deliveredNs, "compositor",
                                toString(call.kind));
        if (call.kind != FedEvent::Kind::kQueue && call.kind != FedEvent::Kind::kVsync) {
            event.arguments.push_back({"value", call.value});
        }
        if (call.lateNs() > 0) event.arguments.push_back({"late_ns", call.lateNs()});
        if (call.heldNs() > 0) event.arguments.push_back({"held_ns", call.heldNs()});
        return event;
    }

    TraceEvent seenEvent(const device::Event& seen, int track, TraceEvent::Kind kind) {
        if (seen.kind == device::EventKind::kServiceCall) return serviceCall(seen, track);
        const bool isLog = seen.kind == device::EventKind::kLog;
        TraceEvent event =
                make(kind, track, seen.timeNs, isLog ? "log" : "marker", onOneLine(seen.text));
        if (isLog) {
            event.arguments.push_back({"tag", seen.tag});
            event.arguments.push_back({"priority", int64_t{seen.priority}});
        }
        return event;
    }

    TraceEvent serviceCall(const device::Event& seen, int track) {
        TraceEvent event = make(TraceEvent::Kind::kInstant, track, seen.timeNs, "service",
                                toString(seen.entryPoint));
        event.arguments.push_back({"call", describe(seen)});
        event.arguments.push_back({"result", seen.result});
        const std::string cause = causeOf(event);
        if (!cause.empty()) event.arguments.push_back({"cause", cause});
        return event;
    }

    // The log has the calls in the same order, but for those of one moment.
    std::string causeOf(const TraceEvent& event) {
        const std::vector<Decision>& log = mFindings.log;
        const int64_t timeNs = event.timeNs - mBaseNs;
        while (mDecision < log.size() && log[mDecision].timeNs < timeNs) ++mDecision;
        const std::string& call = std::get<std::string>(event.arguments.front().value);
        for (size_t i = mDecision; i < log.size() && log[i].timeNs == timeNs; ++i) {
            if (log[i].what == call) return log[i].cause;
        }
        return "";
    }

    void counter(const char* name, const std::vector<Sample>& samples, double scale = 1) {
        if (samples.empty()) return;
        const int track = newTrack(TraceTrack::Kind::kCounter, name);
        for (const Sample& sample : samples) {
            TraceEvent event = make(TraceEvent::Kind::kCounter, track, sample.timeNs, "", name);
            event.value = sample.value * scale;
            mWriter.event(event);
        }
    }

    void counters() {
        constexpr double kMsPerNs = 1e-6;
        counter("queue depth", mFindings.queueDepth);
        counter("headroom, ms", mFindings.headroomNs, kMsPerNs);
        counter("coefficient, %", mFindings.coefficient);
        counter("threshold, %", mFindings.threshold);
        counter("boost expectation", mFindings.boostExpectation);
        counter("measured rate", mFindings.measuredFps);
        std::vector<Sample> rates = {{0, toHertz(mFindings.refresh.periodNs)}};
        for (const RateChange& change : mFindings.refresh.changes)
            rates.push_back({change.timeNs, toHertz(change.periodNs)});
        counter("display, Hz", rates);
    }

    void spans(const char* name, const std::vector<Span>& list) {
        if (list.empty()) return;
        const int track = newTrack(TraceTrack::Kind::kSpans, name);
        for (const Span& span : list) {
            mWriter.event(make(TraceEvent::Kind::kBegin, track, span.beginNs, "effect", span.name));
            mWriter.event(make(TraceEvent::Kind::kEnd, track, span.endNs, "", ""));
        }
    }

    template <typename List, typename Name>
    static std::vector<Span> spansOf(const List& list, Name&& name) {
        std::vector<Span> result;
        for (const auto& item : list) result.push_back({item.beginNs, item.endNs, name(item)});
        return result;
    }

    // From the vsync at which a frame came on the screen to that of the one after it.
    std::vector<Span> pictures() const {
        std::vector<Span> list;
        for (size_t i = 0; i < mFindings.frames.size(); ++i) {
            const std::optional<int64_t> shownNs = mFindings.frames[i].shownNs;
            if (!shownNs) continue;
            if (!list.empty()) list.back().endNs = *shownNs;
            list.push_back({*shownNs, *shownNs + mFindings.refresh.periodAt(*shownNs),
                            format("frame %zu", i)});
        }
        return list;
    }

    void spanTracks() {
        spans("on the screen", pictures());
        spans("boost", spansOf(mFindings.boosts, [](const BoostRecord& boost) {
                  return format("checkpoint %d", boost.checkpoint);
              }));
        spans("clocks lowered", spansOf(mFindings.negativeBoosts, [](const auto& boost) {
                  return format("%d %%", boost.strength);
              }));
        spans("PL off", spansOf(mFindings.plOff, [](const auto&) { return "PL off"; }));
        spans("core control off",
              spansOf(mFindings.coreControlOff, [](const auto&) { return "core control off"; }));
        regulator("frame regulator", mFindings.frameRegulator);
        regulator("headroom regulator", mFindings.headroomRegulator);
    }

    void regulator(const char* name, const Regulator& regulator) {
        std::vector<Span> list;
        for (const auto& [beginNs, endNs] : regulator.spans) list.push_back({beginNs, endNs, "on"});
        spans(name, list);
    }

    const Run& mRun;
    const Findings& mFindings;
    const int mProcess;
    int mTrack;
    TraceWriter& mWriter;
    int64_t mBaseNs = 0;
    size_t mDecision = 0;
    std::map<int, int> mThreadTracks;
    std::vector<Tracked> mTracked;
};

}  // namespace

void writeTrace(std::ostream& out, const std::vector<TraceRun>& runs) {
    TraceWriter writer(out);
    int process = 0;
    int track = 1;
    for (const TraceRun& run : runs) track = RunWalk(run, ++process, track, writer).walk();
}

}  // namespace replay
