// Waiting for a condition on the event loop: what the fine wait of the
// play measurement answers, that it handles the thread's events between its
// questions, and how often it asks.
#include "benchcore.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>
#include <QtTest/QtTest>

using orvicbench::nowMs;
using orvicbench::waitForFine;

class tst_BenchWait : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void trueAtOnce();
    void seesWhatAnEventChanged_data();
    void seesWhatAnEventChanged();
    void neverTrue();
    void asksAtMostOncePerInterval_data();
    void asksAtMostOncePerInterval();
};

void tst_BenchWait::trueAtOnce()
{
    int asked = 0;
    const double before = nowMs();
    const double at = waitForFine([&] { return ++asked > 0; }, 1000, 100);
    QCOMPARE(asked, 1);
    QVERIFY(at >= before);
    QVERIFY(at <= nowMs());
}

void tst_BenchWait::seesWhatAnEventChanged_data()
{
    QTest::addColumn<bool>("timer");
    QTest::newRow("queued call") << false;
    QTest::newRow("zero timer") << true;
}

// The condition turns true only in an event of the waiting thread: found
// only if the wait handles the events between its questions.
void tst_BenchWait::seesWhatAnEventChanged()
{
    QFETCH(bool, timer);
    bool changed = false;
    double changedAt = -1;
    auto change = [&] {
        changed = true;
        changedAt = nowMs();
    };
    if (timer)
        QTimer::singleShot(0, this, change);
    else
        QMetaObject::invokeMethod(this, change, Qt::QueuedConnection);
    const double at = waitForFine([&] { return changed; }, 5000, 100);
    QVERIFY(changed);
    QVERIFY(changedAt >= 0);
    QVERIFY(at >= changedAt);
}

void tst_BenchWait::neverTrue()
{
    int asked = 0;
    const double before = nowMs();
    const double at = waitForFine([&] { ++asked; return false; }, 20, 1000);
    QCOMPARE(at, -1.0);
    QVERIFY(nowMs() - before >= 20);
    QVERIFY(asked >= 2);
}

void tst_BenchWait::asksAtMostOncePerInterval_data()
{
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<int>("intervalUs");
    QTest::newRow("1 ms over 30 ms") << 30 << 1000;
    QTest::newRow("5 ms over 50 ms") << 50 << 5000;
}

// The interval is slept out between questions: never more questions than
// intervals in the wait, plus the first and the one that finds it over.
void tst_BenchWait::asksAtMostOncePerInterval()
{
    QFETCH(int, timeoutMs);
    QFETCH(int, intervalUs);
    int asked = 0;
    const double at = waitForFine([&] { ++asked; return false; }, timeoutMs, intervalUs);
    QCOMPARE(at, -1.0);
    QVERIFY2(asked <= timeoutMs * 1000 / intervalUs + 2, qPrintable(QString::number(asked)));
    QVERIFY(asked >= 2);
}

QTEST_GUILESS_MAIN(tst_BenchWait)
#include "tst_benchwait.moc"
