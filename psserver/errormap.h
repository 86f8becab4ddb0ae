// GStreamer errors and warnings as the engine numbers the session's callback
// sink understands. Numbers 1..2330 other than 2055 read as "file format not
// support" there, 5 as a failed seek, 1032 as low memory, 2055/2332/2333 as
// notices and 2331 as a change of the video's availability.
#ifndef PSSERVER_ERRORMAP_H
#define PSSERVER_ERRORMAP_H

#include <glib.h>

namespace errormap {

constexpr int kSeekFailed = 5;
constexpr int kLowMemory = 1032;
constexpr int kVideoAvailabilityChanged = 2331;
constexpr int kNoticeStream = 2055;   // a stream of the medium cannot be decoded; playback goes on
constexpr int kNoticeResource = 2332; // a resource problem that playback survived
constexpr int kNoticeOther = 2333;    // any other warning of the pipeline

constexpr int kCoreBase = 1100;     // + GstCoreError code
constexpr int kLibraryBase = 1200;  // + GstLibraryError code
constexpr int kResourceBase = 1300; // + GstResourceError code
constexpr int kStreamBase = 1400;   // + GstStreamError code
constexpr int kOtherError = 2000;   // errors of any other domain

// Engine number of an error message (playback stops).
int errorNumber(GQuark domain, int code);
// Engine number of a warning message (playback goes on).
int warningNumber(GQuark domain, int code);

} // namespace errormap

#endif // PSSERVER_ERRORMAP_H
