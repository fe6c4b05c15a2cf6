#include "replay/play/EventLog.h"

#include <algorithm>
#include <cstring>

namespace replay {

namespace {
constexpr size_t kBlockBytes = 256 * 1024;
}  // namespace

uint32_t TextPool::add(const std::string& text) {
    if (text.empty()) return 0;
    // The library has some dozens of fixed texts, which come again and again. Those with figures in
    // them hardly ever come twice.
    uint32_t& latest = mLatest[std::hash<std::string_view>()(text) % mLatest.size()];
    if (mTexts[latest] == text) return latest;
    latest = static_cast<uint32_t>(mTexts.size());
    mTexts.push_back(store(text));
    return latest;
}

std::string_view TextPool::store(const std::string& text) {
    if (mUsed + text.size() > mSize) {
        mSize = std::max(kBlockBytes, text.size());
        mBlocks.push_back(std::make_unique<char[]>(mSize));
        mUsed = 0;
    }
    char* const place = mBlocks.back().get() + mUsed;
    std::memcpy(place, text.data(), text.size());
    mUsed += text.size();
    return {place, text.size()};
}

void EventLog::push_back(const device::Event& event) {
    Packed packed{};
    packed.timeNs = event.timeNs - mOriginNs;
    packed.thread = event.thread;
    packed.kind = static_cast<uint8_t>(event.kind);
    packed.priority = static_cast<uint8_t>(event.priority);
    if (event.kind == device::EventKind::kServiceCall) {
        packed.text = packCall(event);
    } else {
        packed.text = mTexts.add(event.text);
        packed.tag = mTexts.add(event.tag);
    }
    mEvents.push_back(packed);
}

uint32_t EventLog::packCall(const device::Event& event) {
    Call call{};
    call.firstArgument = static_cast<uint32_t>(mArguments.size());
    call.arguments = static_cast<uint16_t>(event.arguments.size());
    call.entryPoint = static_cast<uint16_t>(event.entryPoint);
    call.text = mTexts.add(event.text);
    call.defaultValue = mTexts.add(event.defaultValue);
    call.result = mTexts.add(event.result);
    mArguments.insert(mArguments.end(), event.arguments.begin(), event.arguments.end());
    mCalls.push_back(call);
    return static_cast<uint32_t>(mCalls.size() - 1);
}

device::Event EventLog::operator[](size_t index) const {
    device::Event event;
    unpack(index, event);
    return event;
}

// Into one that may have been another before.
void EventLog::unpack(size_t index, device::Event& event) const {
    const Packed& packed = mEvents[index];
    event.kind = static_cast<device::EventKind>(packed.kind);
    event.timeNs = packed.timeNs;
    event.thread = packed.thread;
    event.priority = packed.priority;
    if (event.kind == device::EventKind::kServiceCall) {
        unpackCall(mCalls[packed.text], event);
        event.tag.clear();
        return;
    }
    event.text = mTexts[packed.text];
    event.tag = mTexts[packed.tag];
    event.entryPoint = {};
    event.arguments.clear();
    event.defaultValue.clear();
    event.result.clear();
}

void EventLog::unpackCall(const Call& call, device::Event& event) const {
    const auto first = mArguments.begin() + call.firstArgument;
    event.entryPoint = static_cast<device::EntryPoint>(call.entryPoint);
    event.arguments.assign(first, first + call.arguments);
    event.text = mTexts[call.text];
    event.defaultValue = mTexts[call.defaultValue];
    event.result = mTexts[call.result];
}

}  // namespace replay
