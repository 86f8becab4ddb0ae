#include "fuzzsupport.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QMutex>

namespace orvicfuzz {

namespace {

QMutex g_captureMutex;
QStringList g_needles;
QStringList g_captured;

void quietHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtDebugMsg || type == QtInfoMsg) {
        QMutexLocker locker(&g_captureMutex);
        for (const QString &needle : qAsConst(g_needles)) {
            if (message.contains(needle)) {
                g_captured.append(message);
                break;
            }
        }
        return;
    }
    std::fprintf(stderr, "%s\n", qPrintable(message));
    if (type == QtFatalMsg)
        std::abort();
}

} // namespace

void initQt(int *argc, char ***argv)
{
    qInstallMessageHandler(quietHandler);
    if (!QCoreApplication::instance()) {
        // Lives for the whole run; libFuzzer never returns from its loop.
        static QCoreApplication *app = new QCoreApplication(*argc, *argv);
        (void)app;
    }
}

void captureLinesContaining(const QString &needle)
{
    QMutexLocker locker(&g_captureMutex);
    g_needles.append(needle);
}

QStringList takeCapturedLines()
{
    QMutexLocker locker(&g_captureMutex);
    QStringList lines;
    lines.swap(g_captured);
    return lines;
}

void fail(const char *file, int line, const char *what)
{
    std::fprintf(stderr, "FUZZ_CHECK failed at %s:%d: %s\n", file, line, what);
    std::abort();
}

} // namespace orvicfuzz
