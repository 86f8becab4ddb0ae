// The measurement sets. Each runs in a process of its own (started by the
// runner), measures `reps` repetitions after one unmeasured warm-up and
// prints its samples (benchcore.h). The result is 0 when every repetition
// produced its numbers.
#ifndef ORVICBENCH_WORKERS_H
#define ORVICBENCH_WORKERS_H

#include <QtCore/QString>

namespace orvicbench {

struct WorkerArgs
{
    QString set;     // which measurement set
    QString player;  // "ours" or "stock"; for some sets a variant
    QString url;     // the medium
    QString tag;     // the medium's name in sample keys, or a count
    int reps = 5;
};

// open -> metadata known and open -> prepared ("open").
int runOpen(const WorkerArgs &args);
// play -> playing, seek while playing and while paused ("transport").
int runTransport(const WorkerArgs &args);
// A volume command's round trip from the owner thread and from another
// thread, and the floors under it ("command").
int runCommand(const WorkerArgs &args);
// detectEncoding against bare uchardet ("detect").
int runDetect(const WorkerArgs &args);
// Recovery after SIGKILL ("kill") or SIGSTOP ("stop") of psserver ("recovery").
int runRecovery(const WorkerArgs &args);
// `tag` sessions opening and playing at once ("concurrent").
int runConcurrent(const WorkerArgs &args);
// Resident size with one playing session or stock player ("memory").
int runMemory(const WorkerArgs &args);

} // namespace orvicbench

#endif // ORVICBENCH_WORKERS_H
