#pragma once

// The stand-in device: what a phone's feature library, performance service, log and tracing would
// be on a machine that has none of them.
//
// The two service libraries of this folder carry the exact sonames that the library under test
// opens
// ("libskewknob_system.so", "libnuv-perfd-client_system.so") and forward every call to the one
// StandInDevice of the process. The host program sets what they answer and reads back what was called.
//
// Every member may be called from any thread at any time. Times are nanoseconds of CLOCK_MONOTONIC,
// virtual ones inside a simulation.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace device {

// The service entry points, in the order in which a client is expected to bind them.
enum class EntryPoint {
    kIsFeatureEnabled,
    kPerfGetProp,
    kPerfGetFeedback,
    kPerfHint,
    kPerfLockAcq,
    kPerfLockRel,
    kGetPerfHalVer,
    kPerfGetFeedbackExtn,
};
inline constexpr int kEntryPointCount = 8;

const char* toString(EntryPoint entryPoint);  // the exported name, such as "perf_hint"

enum class EventKind { kServiceCall, kLog, kTraceBegin, kTraceEnd };

// One thing the library under test did that can be seen from outside.
struct Event {
    EventKind kind = EventKind::kServiceCall;
    int64_t timeNs = 0;  // when the call came in, before any delay
    int thread = 0;      // who called, as the host's thread labeller names it
    // kServiceCall
    EntryPoint entryPoint = EntryPoint::kIsFeatureEnabled;
    std::vector<int> arguments;  // the integers in the order of the signature, a list flattened
    std::string text;  // property or package name ("(null)" for a null pointer); log or trace text
    std::string defaultValue;  // perf_get_prop only: the caller's default
    std::string result;        // what was answered, as text
    int64_t takesNs = 0;       // the delay before the caller gets the answer
    // kLog
    int priority = 0;
    std::string tag;
};

// One line without time and thread, for instance: perf_hint(4166, (null), 8, 1500) = 17
std::string describe(const Event& event);

class StandInDevice {
  public:
    // The device of this process.
    static StandInDevice& instance();

    // Back to the state of a fresh device: no property set, every knob 0, no game, HAL 2.3, no
    // delay, nothing recorded.
    void reset();
    // Afterwards, a device that offers every feature, which the properties may switch on, to these
    // games.
    void reset(const std::map<std::string, std::string>& properties,
               const std::vector<std::string>& games);

    void setProperty(const std::string& name, const std::string& value);
    void setKnob(int id, int value);
    // Answers of perf_get_feedback (2 is a game) and of the weight queries. Others answer 0 and -1.
    void setVerdict(const std::string& package, int verdict);
    void setGameWeight(const std::string& package, int weight);
    void setHalVersion(double version);
    // How long every call of the entry point takes from now on, in ns.
    void setDelay(EntryPoint entryPoint, int64_t delayNs);
    // The tags that tracing reports as enabled; 0 at the start, kTraced is all that the compositor
    // asks for.
    static constexpr uint64_t kTraced = 3;
    void setTraceTags(uint64_t tags);
    // Names the calling thread in the records. The default is the kernel's thread id.
    void setThreadLabeller(std::function<int()> labeller);

    // Takes every event from now on instead of letting the device keep it: a long run has millions.
    // Called one event at a time with the device's lock held, so it must not call the device. An
    // empty one makes the device keep them again. Like the labeller it survives a reset.
    void setEventSink(std::function<void(const Event&)> sink);

    // Everything recorded since the last reset, in order of arrival, without the first so many.
    std::vector<Event> events(size_t without = 0) const;
    void clearEvents();

  private:
    StandInDevice();
    ~StandInDevice();
    friend class Backend;
    class State;
    std::unique_ptr<State> mState;
};

// Opens the two service libraries so that a later dlopen by bare file name finds them, and closes
// them when it goes. `without` names libraries ("libskewknob_system.so") or entry points
// ("perf_hint") that shall be missing.
class ServiceLibraries {
  public:
    explicit ServiceLibraries(const std::vector<std::string>& without = {});
    ~ServiceLibraries();
    ServiceLibraries(const ServiceLibraries&) = delete;
    ServiceLibraries& operator=(const ServiceLibraries&) = delete;

  private:
    std::vector<void*> mHandles;
};

}  // namespace device
