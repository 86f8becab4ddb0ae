// Playbins of ended pipelines kept for the next one. A playbin that played a
// medium through keeps what it learned once for its life (the sorted list of
// the elements it may plug), so the next medium's preparation on it skips
// that work; a few milliseconds of every MP4 or MKV open.
#ifndef PSSERVER_PLAYBINPOOL_H
#define PSSERVER_PLAYBINPOOL_H

#include <gst/gst.h>

namespace playbinpool {

// At most this many are kept: enough for a player that ends while the next
// one starts, and a bound on what idle playbins hold.
constexpr int kCapacity = 2;

// A kept playbin (owned by the caller, in the NULL state, with playbin's
// default flags and no URI, subtitle URI or sinks), or nullptr.
GstElement *take();

// Keeps `playbin` (its reference is taken over), which must be in the NULL
// state with no handler of the caller left on it; unreferenced instead when
// the pool is full.
void park(GstElement *playbin);

// How many are kept now.
int size();

// Unreferences every kept playbin.
void clear();

} // namespace playbinpool

#endif // PSSERVER_PLAYBINPOOL_H
