#include "benchcore.h"

#include <hostruntime.h>

#include <cutils/properties.h>

#include <QtCore/QFile>

#include <cstdio>
#include <unistd.h>

namespace orvicbench {

void emitSample(const QString &key, double value)
{
    std::printf("sample\t%s\t%.6f\n", qPrintable(key), value);
    std::fflush(stdout);
}

void emitNote(const QString &text)
{
    std::printf("note\t%s\n", qPrintable(text));
    std::fflush(stdout);
}

double residentMiB(pid_t pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
    }
    return -1;
}

double cpuTimeMs(pid_t pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = stat.readAll();
    // Fields after the command name, which is in parentheses and may hold blanks.
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return -1;
    // utime and stime are fields 14 and 15 of the whole line.
    const double ticks = fields.at(11).toDouble() + fields.at(12).toDouble();
    return ticks * 1000.0 / double(sysconf(_SC_CLK_TCK));
}

pid_t servicePid()
{
    return hostruntime::instanceLockHolder(hostruntime::runtimeDirectory());
}

void stopService()
{
    property_set("ctl.stop", "psserver");
}

} // namespace orvicbench
