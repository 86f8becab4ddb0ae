// The whole run: every measurement set in processes of its own, the players
// side by side in each round, then the table, the JSON and the plot.
#ifndef ORVICBENCH_RUNNER_H
#define ORVICBENCH_RUNNER_H

#include <QtCore/QString>

namespace orvicbench {

struct RunOptions
{
    QString mediaDir;
    QString outDir;
    // Every row once: that each produces a number, not how fast.
    bool smoke = false;
};

// 0 when every row has a number; the table goes to stdout.
int runBenchmarks(const RunOptions &options);

} // namespace orvicbench

#endif // ORVICBENCH_RUNNER_H
