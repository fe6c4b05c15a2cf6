#include "replay/report/TraceWriter.h"

#include "TrackEvents.pb.h"
#include "replay/report/Utf8.h"

namespace replay {

namespace {

// Any number will do that no other source of a merged trace uses.
constexpr uint32_t kSequence = 0x63696e64;
constexpr char kSequenceField[] = "\x50\xe4\xdc\xa5\x9b\x06";  // as it is written
constexpr uint64_t kProcessUuids = uint64_t{1} << 32;
// In the viewer, threads are told apart by their number alone.
constexpr int kThreadNumbers = 100'000;

trackevents::TrackEvent::Type typeOf(TraceEvent::Kind kind) {
    switch (kind) {
        case TraceEvent::Kind::kBegin:
            return trackevents::TrackEvent::SLICE_BEGIN;
        case TraceEvent::Kind::kEnd:
            return trackevents::TrackEvent::SLICE_END;
        case TraceEvent::Kind::kCounter:
            return trackevents::TrackEvent::COUNTER;
        default:
            return trackevents::TrackEvent::INSTANT;
    }
}

void add(trackevents::TrackEvent& event, const TraceArgument& argument) {
    trackevents::DebugAnnotation& annotation = *event.add_debug_annotations();
    annotation.set_name(argument.name);
    if (const auto* number = std::get_if<int64_t>(&argument.value)) {
        annotation.set_int_value(*number);
    } else {
        annotation.set_string_value(asUtf8(std::get<std::string>(argument.value)));
    }
}

}  // namespace

TraceWriter::TraceWriter(std::ostream& out)
      : mOut(out), mTrace(std::make_unique<trackevents::Trace>()) {}

TraceWriter::~TraceWriter() = default;

void TraceWriter::process(int process, const std::string& name) {
    trackevents::TrackDescriptor& descriptor = *start().mutable_track_descriptor();
    descriptor.set_uuid(kProcessUuids + static_cast<uint64_t>(process));
    descriptor.mutable_process()->set_pid(process);
    descriptor.mutable_process()->set_process_name(asUtf8(name));
    write();
}

void TraceWriter::track(const TraceTrack& track) {
    trackevents::TrackDescriptor& descriptor = *start().mutable_track_descriptor();
    descriptor.set_uuid(static_cast<uint64_t>(track.number));
    descriptor.set_parent_uuid(kProcessUuids + static_cast<uint64_t>(track.process));
    if (track.kind == TraceTrack::Kind::kThread) {
        descriptor.mutable_thread()->set_pid(track.process);
        descriptor.mutable_thread()->set_tid(kThreadNumbers + track.number);
        descriptor.mutable_thread()->set_thread_name(asUtf8(track.name));
    } else {
        descriptor.set_name(track.name);
        if (track.kind == TraceTrack::Kind::kCounter) descriptor.mutable_counter();
    }
    write();
}

void TraceWriter::event(const TraceEvent& event) {
    trackevents::TracePacket& packet = start();
    packet.set_timestamp(static_cast<uint64_t>(event.timeNs));
    trackevents::TrackEvent& out = *packet.mutable_track_event();
    out.set_type(typeOf(event.kind));
    out.set_track_uuid(static_cast<uint64_t>(event.track));
    if (event.kind == TraceEvent::Kind::kCounter) {
        out.set_double_counter_value(event.value);
    } else if (event.kind != TraceEvent::Kind::kEnd) {
        out.set_name(asUtf8(event.name));
        if (*event.category != '\0') out.add_categories(event.category);
    }
    for (const TraceArgument& argument : event.arguments) add(out, argument);
    write();
}

trackevents::TracePacket& TraceWriter::start() {
    mTrace->Clear();
    trackevents::TracePacket& packet = *mTrace->add_packet();
    packet.set_trusted_packet_sequence_id(kSequence);
    return packet;
}

void TraceWriter::write() {
    mTrace->SerializeToOstream(&mOut);
}

bool isTrace(std::string_view firstBytes) {
    // The first packet begins with the number of its sequence; its length takes a byte or two.
    const size_t at = firstBytes.find(kSequenceField);
    return startsWith(firstBytes, "\x0a") && (at == 2 || at == 3);
}

}  // namespace replay
