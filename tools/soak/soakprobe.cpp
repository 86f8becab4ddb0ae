#include "soakprobe.h"

#include <hostruntime.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <atomic>
#include <cstdio>

namespace soakprobe {

namespace {

std::atomic<int> g_counts[LineKinds];
// ORVIC_SOAK_LOG=1 shows the library's own lines too (for a failing round).
const bool g_showAll = qEnvironmentVariableIntValue("ORVIC_SOAK_LOG") == 1;

void handler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (g_showAll || (type != QtDebugMsg && type != QtInfoMsg)) {
        std::fprintf(stderr, "%s\n", qPrintable(message));
        if (type != QtDebugMsg && type != QtInfoMsg)
            return;
    }
    if (message.contains(QLatin1String("play session actMessage ")))
        ++g_counts[CarriedOut];
    else if (message.contains(QLatin1String("checkServer: orignal state:")))
        ++g_counts[WatchdogRestart];
    else if (message.contains(QLatin1String("checkServer: already block once:")))
        ++g_counts[AlreadyBlockOnce];
    else if (message.contains(QLatin1String("checkServer: psserver is blocking")))
        ++g_counts[StallRestart];
}

int entries(const char *dir)
{
    return int(QDir(QString::fromLatin1(dir)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System).size());
}

} // namespace

void installLogProbe()
{
    qInstallMessageHandler(handler);
}

int count(Line line)
{
    return g_counts[line].load();
}

ProcessCounts processCounts()
{
    return ProcessCounts{entries("/proc/self/fd"), entries("/proc/self/task")};
}

QString threadNames()
{
    QStringList names;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(task + QStringLiteral("/comm")));
        if (comm.open(QIODevice::ReadOnly))
            names.append(QString::fromUtf8(comm.readAll().trimmed()));
    }
    names.sort();
    return names.join(QLatin1Char(' '));
}

QString descriptorTargets()
{
    QStringList targets;
    const QDir fds(QStringLiteral("/proc/self/fd"));
    for (const QString &fd : fds.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System))
        targets.append(QFile::symLinkTarget(fds.filePath(fd)));
    targets.sort();
    return targets.join(QLatin1Char(' '));
}

pid_t daemonPid()
{
    return hostruntime::instanceLockHolder(hostruntime::runtimeDirectory());
}

} // namespace soakprobe
