// Time and waiting, shared by the workers and their test.
#include "benchcore.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <unistd.h>

namespace orvicbench {

namespace {

QElapsedTimer &clock()
{
    static QElapsedTimer timer = [] {
        QElapsedTimer t;
        t.start();
        return t;
    }();
    return timer;
}

} // namespace

double nowMs()
{
    return double(clock().nsecsElapsed()) / 1e6;
}

double waitFor(const std::function<bool()> &holds, int timeoutMs, int pollMs)
{
    if (holds())
        return nowMs();
    QEventLoop loop;
    double at = -1;
    QTimer poll;
    poll.setTimerType(Qt::PreciseTimer);
    poll.setInterval(pollMs);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (holds()) {
            at = nowMs();
            loop.quit();
        }
    });
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, &loop, &QEventLoop::quit);
    poll.start();
    limit.start(timeoutMs);
    loop.exec();
    if (at < 0 && holds())
        at = nowMs();
    return at;
}

double waitForFine(const std::function<bool()> &holds, int timeoutMs, int intervalUs)
{
    const double start = nowMs();
    // Between the questions the thread handles its events and then sleeps
    // out the rest of the interval: a spinning loop would take a core from
    // the threads that do the playing (on two cores, most of what is left).
    while (!holds()) {
        const double askedAt = nowMs();
        if (askedAt - start > timeoutMs)
            return -1;
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        const double left = intervalUs - (nowMs() - askedAt) * 1000.0;
        if (left > 0)
            usleep(useconds_t(left));
    }
    return nowMs();
}

} // namespace orvicbench
