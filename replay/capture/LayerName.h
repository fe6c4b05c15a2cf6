#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace replay {

// The two names a layer goes by in a capture and in the compositor.
struct LayerName {
    std::string layer;    // as the compositor names it: "SurfaceView[package/activity](BLAST)#12"
    std::string package;  // "package"
};

// The layer whose queued buffers the counter shows, in whatever form the capturing release named
// it:
//   SurfaceView - package/activity#12
//   BufferTX - SurfaceView[package/activity](BLAST)#12
//   BufferTX - SurfaceView[package/activity]#12
// Nothing for a counter of any other kind.
std::optional<LayerName> layerOfCounter(std::string_view counter);

// The same of the application's own view of the queue:
//   QueuedBuffer - SurfaceView[package/activity]#1BLAST#1
std::optional<LayerName> layerOfQueuedBuffer(std::string_view counter);

}  // namespace replay
