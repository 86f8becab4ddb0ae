// The flushes of the subtitle sink.
#ifndef PSSERVER_TEXTSINKFLUSH_H
#define PSSERVER_TEXTSINKFLUSH_H

#include <gst/gst.h>

namespace playbinengine {

// After a subtitle stream switch, playbin's sink bin flushes its subtitle
// chain by itself, from the subtitle streaming thread, when the next cue
// passes: a flush start, then a flush stop. When a seek's flush comes at the
// same moment, that flush stop can end the chain's flush before the seek's
// own stop has come. The sink then takes the next cue as its preroll in a
// pause and holds its stream lock while it waits, and the seek's flush stop,
// which needs that lock, waits for ever (and the engine thread with it).
//
// From the call on, every flush stop that comes into the element that feeds
// `sink` (the queue before it) is preceded by a flush start sent into that
// element, so that it flushes as a whole: the sink lets its preroll go and
// the element's thread stops before the stop starts it again. An element
// that is already flushing refuses that start, so nothing else changes. The
// guard follows the sink into every chain it is linked into.
void guardFlushStops(GstElement *sink);

} // namespace playbinengine

#endif // PSSERVER_TEXTSINKFLUSH_H
