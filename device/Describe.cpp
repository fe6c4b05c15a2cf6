#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "device/DeviceState.h"
#include "device/StandInDevice.h"

namespace device {
namespace {

struct Signature {
    const char* name;
    // One letter a parameter: i integer, s Event::text, d Event::defaultValue, l list of integers,
    // o list of alternating opcodes and values.
    std::string_view parameters;
};

// Indexed by EntryPoint.
constexpr std::array<Signature, kEntryPointCount> kSignatures{{
        {"IsFeatureEnabled", "i"},
        {"perf_get_prop", "sd"},
        {"perf_get_feedback", "is"},
        {"perf_hint", "isii"},
        {"perf_lock_acq", "iioi"},
        {"perf_lock_rel", "i"},
        {"get_perf_hal_ver", ""},
        {"perf_get_feedback_extn", "isil"},
}};

const Signature& signatureOf(EntryPoint entryPoint) {
    return kSignatures.at(static_cast<size_t>(entryPoint));
}

std::string quoted(const std::string& text) {
    return text == "(null)" ? text : '"' + text + '"';
}

std::string hex(int value) {
    char text[16];
    snprintf(text, sizeof(text), "%#x", static_cast<unsigned>(value));
    return text;
}

// Writes the arguments of one call, taking the recorded integers one after the other.
class ArgumentWriter {
  public:
    explicit ArgumentWriter(const Event& event)
          : mEvent(event), mParameters(signatureOf(event.entryPoint).parameters) {}

    std::string write() {
        std::string text;
        for (const char parameter : mParameters) {
            if (!text.empty()) text += ", ";
            text += argument(parameter);
        }
        return text;
    }

  private:
    std::string argument(char parameter) {
        switch (parameter) {
            case 's':
                return quoted(mEvent.text);
            case 'd':
                return quoted(mEvent.defaultValue);
            case 'l':
                return list(false);
            case 'o':
                return list(true);
            default:
                return std::to_string(mEvent.arguments.at(mNext++));
        }
    }

    // The list is what remains when every plain integer has its place.
    size_t listLength() const {
        const auto integers = std::count(mParameters.begin(), mParameters.end(), 'i');
        return mEvent.arguments.size() - static_cast<size_t>(integers);
    }

    std::string list(bool hasOpcodes) {
        const size_t length = listLength();
        // Without a list the last integer is the count, in every signature that has one.
        if (length == 0 && mEvent.arguments.back() > 0) return "(null)";
        std::string text;
        for (size_t i = 0; i < length; ++i) {
            const int value = mEvent.arguments.at(mNext++);
            if (i > 0) text += ", ";
            text += hasOpcodes && i % 2 == 0 ? hex(value) : std::to_string(value);
        }
        return '{' + text + '}';
    }

    const Event& mEvent;
    const std::string_view mParameters;
    size_t mNext = 0;
};

std::string describeCall(const Event& event) {
    const bool answersText = event.entryPoint == EntryPoint::kPerfGetProp;
    return std::string(toString(event.entryPoint)) + '(' + ArgumentWriter(event).write() +
           ") = " + (answersText ? '"' + event.result + '"' : event.result);
}

// Indexed by the platform's priorities: unknown, default, verbose, debug and so on.
char priorityLetter(int priority) {
    constexpr std::string_view kLetters = "??VDIWEFS";
    const auto index = static_cast<size_t>(priority);
    return index < kLetters.size() ? kLetters[index] : '?';
}

}  // namespace

const char* toString(EntryPoint entryPoint) {
    return signatureOf(entryPoint).name;
}

std::string describe(const Event& event) {
    switch (event.kind) {
        case EventKind::kServiceCall:
            return describeCall(event);
        case EventKind::kLog:
            return std::string{priorityLetter(event.priority)} + ' ' + event.tag + ": " +
                   event.text;
        case EventKind::kTraceBegin:
            return "begin " + event.text;
        case EventKind::kTraceEnd:
            return "end";
    }
    return "?";
}

}  // namespace device
