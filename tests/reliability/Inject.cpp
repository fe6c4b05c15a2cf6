// inject: plays a few programs again and again, and lets something else fail each time: every
// allocation and every thread creation of the library in its turn, each entry point of the services
// and each library, every property in every hostile way, slow answers, and clocks at the edge of
// their range. What can fail is counted first, in a run without a fault.

#include <CLI/CLI.hpp>

#include <cstdio>
#include <set>

#include "tests/reliability/Player.h"
#include "tests/reliability/Violation.h"
#include "tests/reliability/Workers.h"

using namespace reliability;
using device::EntryPoint;

namespace {

constexpr const char* kPrograms[] = {
        // Everything on: measured, boosted, held, saved.
        "gpdnt 1 71 32 0 20 0 | q0,0@16667 q0,0@16667 v0,0@0 q0,0@1000 q0,0@60000 c0,0@0 "
        "| v0,0@16667 v0,0@16667 c0,1@1000",
        // Early frames, which save energy, and late ones.
        "gpdnt 1 71 32 0 0 0 | q0,0@5000 q0,0@5000 q0,0@5000 q0,0@5000 q0,0@5000 q0,0@5000 "
        "q0,0@25000 q0,0@25000 q0,0@5000 q0,0@5000 "
        "| v0,0@16667 v0,0@16667 v0,0@16667 v0,0@16667 v0,0@16667 v0,0@16667 v0,0@16667",
        // Two games, and a third that takes the place of the first.
        "gpn 2 71 32 0 0 0 | q2,0@2000000 q2,0@1000 q0,0@0 | q0,0@2000000 v0,0@0",
        // A fast display that slows down.
        "gpd 1 111 32 1 0 0 | v0,0@0 q0,0@11111 q0,0@11111 p0,0@0 q0,0@90000",
        // Layers of all kinds, and a compositor that changes its mind.
        "gpd 1 0 0 0 300 0 | i0,0@0 p0,0@0 q3,0@0 q4,0@1000 q5,0@1000 q0,0@1000 q1,0@1000 "
        "x0,0@0 i0,0@0 q2,0@1000 p4,0@0",
        // The headroom regulator alone, and power optimisation alone.
        "pd 1 71 32 0 0 0 | v0,0@0 q0,0@1000 q0,0@0 c0,1@0 q0,0@0",
        "gdt 1 400 0 0 1100 0",
};

constexpr int kFirstNeededForActivity = 2;     // without the knobs or the properties all is off
constexpr int kFirstNeededForEnvironment = 3;  // and without a verdict nothing is a game

struct Fault {
    explicit Fault(std::string name) : what(std::move(name)) {}

    std::string what;
    int failThread = 0;
    Trouble trouble;
    std::function<std::string(const Reached&)> complaint;  // empty if the fallback is in force
};

struct MeasuredProgram {
    CallProgram program;
    Reached sound;  // of the run without a fault
    std::set<std::string> properties;
};

class Injector {
  public:
    explicit Injector(std::string library) : mLibrary(std::move(library)) {}

    int run() {
        for (const char* text : kPrograms) mPrograms.push_back(measure(text));
        inject("allocations, once",
               [this](const MeasuredProgram& s) { return allocations(s, false); });
        inject("allocations, from then on",
               [](const MeasuredProgram& s) { return allocations(s, true); });
        inject("threads, once", [](const MeasuredProgram& s) { return threads(s, false); });
        inject("threads, from then on", [](const MeasuredProgram& s) { return threads(s, true); });
        inject("missing libraries and entry points", missing);
        inject("hostile properties", hostile);
        inject("slow entry points", slow);
        inject("clocks at the edge", clocks);
        std::printf("%zu faults in all, %d did harm\n", mAll, mHarmful);
        return mHarmful == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }

  private:
    MeasuredProgram measure(const char* text) {
        MeasuredProgram measured{parse(text), {}, {}};
        Trouble counting;
        counting.memory = countedMemory();
        counting.observer = [&](const device::Event& event) {
            if (event.kind == device::EventKind::kServiceCall &&
                event.entryPoint == EntryPoint::kPerfGetProp)
                measured.properties.insert(event.text);
        };
        measured.sound = play(measured.program, scheduleOf(kUndisturbed), mLibrary, &counting);
        return measured;
    }

    template <typename Faults>
    void inject(const char* kind, Faults faultsOf) {
        size_t count = 0;
        for (const MeasuredProgram& measured : mPrograms) {
            const std::vector<Fault> faults = faultsOf(measured);
            count += faults.size();
            for (size_t next = 0; next < faults.size();)
                next = playFrom(next, faults, measured, kind);
        }
        mAll += count;
        std::printf("%-36s %zu\n", kind, count);
        std::fflush(stdout);
    }

    // Returns the index after the first fault that does harm, or the number of faults.
    size_t playFrom(size_t first, const std::vector<Fault>& faults, const MeasuredProgram& measured,
                    const char* kind) {
        Worker worker([&](Report& report) {
            for (size_t i = first; i < faults.size(); ++i) {
                Worker::begins(report, i);
                playWith(faults[i], measured.program);
            }
        });
        Finding finding;
        if (worker.wait(finding)) return faults.size();
        const Fault& fault = faults[finding.at];
        ++mHarmful;
        std::printf("%s, %s: violated: %s\n%s\nin: %s\n", kind, fault.what.c_str(),
                    finding.invariant.c_str(), finding.text.c_str(),
                    toText(measured.program).c_str());
        return finding.at + 1;
    }

    void playWith(const Fault& fault, CallProgram program) const {
        program.failThread = fault.failThread;
        const Reached reached = play(program, scheduleOf(kUndisturbed), mLibrary, &fault.trouble);
        if (!fault.complaint) return;
        const std::string complaint = fault.complaint(reached);
        if (!complaint.empty()) violate("fallback-in-force", complaint);
    }

    static std::vector<Fault> allocations(const MeasuredProgram& measured, bool lasting) {
        std::vector<Fault> faults;
        for (int64_t nth = 1; nth <= measured.sound.allocations; ++nth) {
            Fault fault("allocation " + std::to_string(nth));
            fault.trouble.memory = countedMemory();
            fault.trouble.memory.nth = nth;
            fault.trouble.memory.lasting = lasting;
            fault.trouble.passes = true;
            faults.push_back(std::move(fault));
        }
        return faults;
    }

    // Where the library lacks a thread, it says so.
    static std::vector<Fault> threads(const MeasuredProgram& measured, bool lasting) {
        std::vector<Fault> faults;
        for (int nth = 1; nth <= measured.sound.threads; ++nth) {
            Fault fault("thread " + std::to_string(nth));
            fault.failThread = nth;
            fault.trouble.lastingThreads = lasting;
            fault.trouble.passes = !lasting;
            fault.complaint = [](const Reached& reached) {
                return reached.lostThreads > 0 || reached.lostOwnThread ? "" : "no line says so";
            };
            faults.push_back(std::move(fault));
        }
        return faults;
    }

    // Binding stops at the first that is missing: those behind it are never called.
    static std::vector<Fault> missing(const MeasuredProgram& measured) {
        std::vector<Fault> faults;
        for (const char* library : {"libskewknob_system.so", "libnuv-perfd-client_system.so"})
            faults.push_back(without(library, 0, measured));
        for (int i = 0; i < device::kEntryPointCount; ++i)
            faults.push_back(without(toString(static_cast<EntryPoint>(i)), i, measured));
        return faults;
    }

    static Fault without(const char* name, int index, const MeasuredProgram& measured) {
        Fault fault(std::string("without ") + name);
        fault.trouble.without = {name};
        const Reached& sound = measured.sound;
        fault.complaint = [index, sound](const Reached& reached) -> std::string {
            if ((reached.calledEntryPoints >> index) != 0) return "one behind it was called";
            const bool active = index >= kFirstNeededForActivity;
            if (reached.active != active) return active ? "not active" : "active without it";
            const bool same = reached.threads == sound.threads;
            if (index >= kFirstNeededForEnvironment && !same) return "threads are missing";
            return "";
        };
        return fault;
    }

    static std::vector<Fault> hostile(const MeasuredProgram& measured) {
        const std::string values[] = {
                "",     " 1",   "+1",    "-1",  "2147483647",          "-2147483648",
                "text", "nan",  "-inf",  "0x1", std::string(91, '9'),  std::string(91, 'x'),
                "\n",   "%s%n", "1e308", "1.5", "99999999999999999999"};
        std::vector<Fault> faults;
        for (const std::string& property : measured.properties) {
            for (const std::string& value : values) {
                Fault fault(property + " = \"" + value + '"');
                fault.trouble.device = [property, value](device::StandInDevice& device) {
                    device.setProperty(property, value);
                };
                faults.push_back(std::move(fault));
            }
        }
        return faults;
    }

    static std::vector<Fault> slow(const MeasuredProgram&) {
        std::vector<Fault> faults;
        for (int entryPoint = 0; entryPoint < device::kEntryPointCount; ++entryPoint) {
            for (const int64_t seconds : {1, 5}) {
                Fault fault(toString(static_cast<EntryPoint>(entryPoint)) +
                            (" takes " + std::to_string(seconds)) + " s");
                fault.trouble.slowEntryPoint = entryPoint;
                fault.trouble.slowNs = seconds * kSecond;
                fault.trouble.passes = true;
                faults.push_back(std::move(fault));
            }
        }
        return faults;
    }

    static std::vector<Fault> clocks(const MeasuredProgram&) {
        constexpr int64_t kHour = 3600 * kSecond;
        std::vector<Fault> faults;
        for (const int64_t start : {int64_t{1}, kSecond - 1, (int64_t{1} << 31) * kSecond,
                                    (int64_t{1} << 32) * kSecond, INT64_MAX - kHour}) {
            Fault fault("clock starts at " + std::to_string(start));
            fault.trouble.startTimeNs = start;
            fault.trouble.passes = true;
            faults.push_back(std::move(fault));
        }
        return faults;
    }

    const std::string mLibrary;
    std::vector<MeasuredProgram> mPrograms;
    size_t mAll = 0;
    int mHarmful = 0;
};

}  // namespace

int main(int argc, char** argv) {
    std::string library = "libcindral.so";
    CLI::App app("plays a few programs to the library and lets something else fail each time");
    app.add_option("--library", library, "the library to play to");
    CLI11_PARSE(app, argc, argv);
    try {
        return Injector(library).run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "inject: %s\n", error.what());
        return 2;
    }
}
