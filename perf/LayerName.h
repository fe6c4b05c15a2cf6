#pragma once

#include <cstddef>
#include <string>

namespace android::cindral {

// The pattern of the layer names that belong to an application's surface; group 1 is the package.
inline constexpr char kLayerNamePattern[] = R"((?:SurfaceView\[)([^/]+).*#\d+)";

// Longest name that is handed to the regular expression. The standard library's matcher recurses
// for every character and needs some hundred bytes of stack for each, while the threads that queue
// buffers may have no more than 1 MiB. Names on real devices stay below 300 characters.
inline constexpr size_t kMaxRegexNameLength = 512;

// The package name in `layerName`, or an empty text where the whole name does not match the
// pattern. May throw std::bad_alloc.
std::string packageNameOf(const std::string& layerName);

// The same answer without recursion, for names of any length.
std::string packageNameOfLongName(const std::string& layerName);

}  // namespace android::cindral
