// Wire constants shared by psserver and its clients (the host playback
// library and the host property service). Plain C++: the property service
// speaks the tiny liveness exchange without Qt.
//
// Every frame on the service socket is a QDataStream-serialised QByteArray:
// a 32-bit big-endian byte count followed by the payload. The payload starts
// with two 32-bit big-endian words, the frame kind and a sequence number;
// requests, replies and events carry QDataStream-encoded fields after them.
#ifndef PSSERVER_PSWIRE_H
#define PSSERVER_PSWIRE_H

#include <cstdint>

namespace pswire {

enum FrameKind : uint32_t {
    FramePing = 1,    // client -> service, no fields
    FramePong = 2,    // service -> client, the ping's sequence number
    FrameCall = 3,    // client -> service: operation, arguments
    FrameReply = 4,   // service -> client: result, output bytes
    FrameEvent = 5    // service -> client: event, arguments (sequence 0)
};

// Frames larger than this are a protocol violation; the peer is dropped.
constexpr uint32_t kMaxFrameSize = 1u << 20;

// Operations of a call frame: the engine player's operations, plus Open,
// which creates the engine of the connection.
enum Operation : uint32_t {
    OpOpen = 1,
    OpSetUrl,
    OpSetSubUrl,
    OpPrepare,
    OpPlay,
    OpSeekTo,
    OpPause,
    OpStop,
    OpReset,
    OpGetState,
    OpGetDuration,
    OpGetPosition,
    OpSetSpeed,
    OpGetSpeed,
    OpIsTrickPlaySupported,
    OpGetVolume,
    OpChangeStream,
    OpGetCurrentStream,
    OpSetStreamVolume,
    OpSetParameter,
    OpGetParameter,
    OpGetSubtitleLanguage
};

// Events of an event frame, one per operation of the engine callback.
enum Event : uint32_t {
    EvDurationChanged = 1,
    EvPositionChanged,
    EvStateChanged,
    EvVolumeChanged,
    EvBufferingProgress,
    EvStreamChanged,
    EvSeekableChanged,
    EvError,
    EvSpeedChanged,
    EvPrepared,
    EvPlaybackFinish,
    EvAboutToFinish,
    EvMediaAvailableChanged,
    EvSubtitleChanged
};

// Failure results of engine operations that are not engine error numbers.
// Engine error numbers (what a failed preparation returns) are positive.
enum Result : int {
    ResultOk = 0,
    ResultFailed = -1,
    ResultNotFound = -2,          // the medium does not exist or cannot be read
    ResultInvalidArgument = -22,
    ResultInvalidState = -38,     // not allowed in the engine's current state
    ResultUnsupported = -95,      // e.g. a playback rate the medium cannot do
    ResultTimedOut = -110,        // preparation took longer than allowed
    ResultServiceUnavailable = -111, // no connection to psserver
    ResultServiceUnresponsive = -112, // psserver stopped answering
    ResultCancelled = -125        // a stop or reset ended the preparation
};

// Status values of the service as the property service reports them.
constexpr const char kStatusRunning[] = "running";
constexpr const char kStatusStopped[] = "stopped";
// The daemon holds its instance lock but does not listen yet.
constexpr const char kStatusStarting[] = "starting";
// The daemon holds its instance lock and takes connections, but does not
// answer (stopped with SIGSTOP, or hung).
constexpr const char kStatusUnresponsive[] = "unresponsive";

} // namespace pswire

#endif // PSSERVER_PSWIRE_H
