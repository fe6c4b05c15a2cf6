#include "replay/capture/PerfettoTimeline.h"

#include "replay/capture/Capture.h"

namespace replay {

namespace {

constexpr uint32_t kMonotonicClock = 3;
constexpr uint32_t kBootClock = 6;
// Far more than any device is up, and far from overflow.
constexpr uint64_t kMaxTimestampNs = 1'000'000'000'000'000'000;

bool isTime(uint64_t timeNs) {
    return timeNs <= kMaxTimestampNs;
}

}  // namespace

void PerfettoTimeline::use(const perfetto::TracePacket& packet, FrameTimeline& timeline,
                           const MarkerSink& sink) {
    noteClocks(packet);
    if (!packet.has_frame_timeline_event()) return;
    const std::optional<int64_t> timeNs = timeOf(packet);
    if (!timeNs) return;
    const perfetto::FrameTimelineEvent& event = packet.frame_timeline_event();
    if (event.has_actual_surface()) {
        const auto& surface = event.actual_surface();
        timeline.begin(surface.cookie(), {surface.layer_name(), 0, surface.present_type(),
                                          static_cast<uint32_t>(surface.jank_type())});
    } else if (event.has_frame_end()) {
        timeline.end(*timeNs, event.frame_end().cookie());
    } else if (event.has_expected_display()) {
        const std::string value = std::to_string(++mDisplayFrames % 2);
        sink(Marker{*timeNs, std::string("C|0|") + kDisplayFrames + "|" + value, 0});
    }
}

void PerfettoTimeline::noteClocks(const perfetto::TracePacket& packet) {
    if (packet.has_trace_packet_defaults()) {
        mClocks[packet.trusted_packet_sequence_id()] =
                packet.trace_packet_defaults().timestamp_clock_id();
    }
    const perfetto::FtraceEventBundle& bundle = packet.ftrace_events();
    const auto isGiven = [](int64_t timeNs) {
        return timeNs > 0 && isTime(static_cast<uint64_t>(timeNs));
    };
    if (isGiven(bundle.ftrace_timestamp()) && isGiven(bundle.boot_timestamp()))
        mEventsLessBootNs = bundle.ftrace_timestamp() - bundle.boot_timestamp();
    std::optional<int64_t> monotonicNs, bootNs;
    for (const auto& clock : packet.clock_snapshot().clocks()) {
        if (!isTime(clock.timestamp())) continue;
        const auto timeNs = static_cast<int64_t>(clock.timestamp());
        if (clock.clock_id() == kMonotonicClock) monotonicNs = timeNs;
        if (clock.clock_id() == kBootClock) bootNs = timeNs;
    }
    if (monotonicNs && bootNs) mBootLessMonotonicNs = *bootNs - *monotonicNs;
}

std::optional<int64_t> PerfettoTimeline::timeOf(const perfetto::TracePacket& packet) const {
    const auto usual = mClocks.find(packet.trusted_packet_sequence_id());
    const uint32_t clock = packet.has_timestamp_clock_id() ? packet.timestamp_clock_id()
                           : usual != mClocks.end()        ? usual->second
                                                           : kBootClock;
    if (!isTime(packet.timestamp())) return std::nullopt;
    const int64_t timeNs = static_cast<int64_t>(packet.timestamp()) + mEventsLessBootNs;
    if (clock == kMonotonicClock && mBootLessMonotonicNs) return timeNs + *mBootLessMonotonicNs;
    return clock == kBootClock || clock == 0 ? std::optional(timeNs) : std::nullopt;
}

}  // namespace replay
