#ifndef CINDRAL_H
#define CINDRAL_H

/*
 * The interface of libcindral to the display compositor.
 *
 * The compositor initialises once, tells the vsync period, and reports every queued buffer, every
 * consumed buffer and every vsync. The library decides everything else: which layers are games,
 * which two of them it tracks, when it boosts, holds or saves.
 *
 * Every function may be called from any thread, reports no failure and lets no exception out. Times
 * are nanoseconds of CLOCK_MONOTONIC. While the module is inactive, cindralSetVsyncPeriod and the
 * three cindralTrack functions return at once.
 */

#ifdef __cplusplus
#include <string>
extern "C" {
#else
#include <stdbool.h>
#endif

#define CINDRAL_API __attribute__((visibility("default")))

/*
 * Decides, once, which features run, from the device's feature knobs and properties, and returns
 * whether any does. Later calls return the same answer without reading anything again, until
 * clearConfigs. Takes as long as the performance service takes to answer for its knobs and
 * properties.
 */
CINDRAL_API bool cindralInit(void);

/*
 * The display's vsync period in ns, at the start and at every change of the refresh rate. A tracked
 * layer logs a period outside the classes of 60, 75, 90, 120 and 144 Hz, keeps its last good one,
 * and matches no frame rate until a different good one comes: the one it kept is no change.
 */
CINDRAL_API void cindralSetVsyncPeriod(long period);

/*
 * The layer queued a buffer. May hold the caller, who should be the thread that queued it: for up
 * to two vsync periods and a little while the layer is paced; for calls of the service, when the
 * layer first runs at the display's rate and, once a second at most, when power optimisation
 * switches; and for those that other threads make for the same layer under a lock it needs. Stops
 * and joins the threads of a game that a third one replaces. `layerName` is compared byte by byte;
 * null is ignored.
 */
CINDRAL_API void cindralTrackBufferIncrement(const char* layerName);

/*
 * A buffer of the layer was consumed and `pending` others are still in its queue. Waits for
 * locks only. When two threads queue the same layer at once, which they should not, it may wait for
 * the one that is held. Null and unknown layers are ignored.
 */
CINDRAL_API void cindralTrackBufferDecrement(const char* layerName, int pending);

/*
 * A vsync happened now: the library takes the time itself.
 */
CINDRAL_API void cindralTrackVsyncSignal(void);

#ifdef __cplusplus
}

namespace android {

/*
 * Forgets what cindralInit decided, so that its next call decides anew. Stops nothing: layers that
 * are tracked go on being served until then.
 */
CINDRAL_API void clearConfigs();

/*
 * Enters a layer's classification: a tracker for a game, the ignore list for anything else. The
 * caller must hold the module's layer lock, which is private to the library.
 */
CINDRAL_API void updateLayerListLocked(const std::string& layerName, bool isGame);

}  // namespace android
#endif

#endif /* CINDRAL_H */
