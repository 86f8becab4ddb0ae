// Subtitle cues handed over early and repeatedly, shown by position.
#include <subtitlescheduler.h>

#include <QtTest/QtTest>

#include <limits>

class tst_SubtitleScheduler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textAt_data();
    void textAt();
    void updateReportsChangesOnly();
    void repeatedCueIsOneCue();
    void seekBackShowsAgainAfterReset();
    void openEndedCueEndsAtNextOrLimit();
    void cueAtEndOfTimeLine_data();
    void cueAtEndOfTimeLine();
    void markup_data();
    void markup();
};

namespace {
SubtitleScheduler threeCues()
{
    SubtitleScheduler s;
    s.add(500, 1000, "First line");
    s.add(1500, 500, QByteArray()); // a gap sample
    s.add(2000, 1000, "Second");
    s.add(4000, 1000, "Third");
    return s;
}
} // namespace

void tst_SubtitleScheduler::textAt_data()
{
    QTest::addColumn<qint64>("position");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("before any") << qint64(0) << QByteArray();
    QTest::newRow("just before") << qint64(499) << QByteArray();
    QTest::newRow("start") << qint64(500) << QByteArray("First line");
    QTest::newRow("inside") << qint64(1499) << QByteArray("First line");
    QTest::newRow("end is exclusive") << qint64(1500) << QByteArray();
    QTest::newRow("second") << qint64(2500) << QByteArray("Second");
    QTest::newRow("between") << qint64(3500) << QByteArray();
    QTest::newRow("third") << qint64(4999) << QByteArray("Third");
    QTest::newRow("after all") << qint64(9000) << QByteArray();
}

void tst_SubtitleScheduler::textAt()
{
    QFETCH(qint64, position);
    QFETCH(QByteArray, text);
    QCOMPARE(threeCues().textAt(position), text);
}

void tst_SubtitleScheduler::updateReportsChangesOnly()
{
    SubtitleScheduler s = threeCues();
    QByteArray text("unchanged");
    QVERIFY(!s.update(100, &text)); // nothing shown, nothing to show
    QCOMPARE(text, QByteArray("unchanged"));
    QVERIFY(s.update(600, &text));
    QCOMPARE(text, QByteArray("First line"));
    QVERIFY(!s.update(900, &text));
    QVERIFY(s.update(1600, &text));
    QCOMPARE(text, QByteArray()); // cleared
    QVERIFY(!s.update(1700, &text));
    QVERIFY(s.update(2000, &text));
    QCOMPARE(text, QByteArray("Second"));
    QCOMPARE(s.shown(), QByteArray("Second"));
}

void tst_SubtitleScheduler::repeatedCueIsOneCue()
{
    SubtitleScheduler s;
    s.add(500, 1000, "First line");
    s.add(500, 1000, "First line"); // again after a flushing seek
    s.add(500, 200, "other");       // same start: the first one stays
    QCOMPARE(s.cueCount(), 1);
    QCOMPARE(s.textAt(1400), QByteArray("First line"));
    s.add(-1, 100, "before zero");
    QCOMPARE(s.cueCount(), 1);
}

void tst_SubtitleScheduler::seekBackShowsAgainAfterReset()
{
    SubtitleScheduler s = threeCues();
    QByteArray text;
    QVERIFY(s.update(600, &text));
    s.resetShown();
    QVERIFY(s.update(700, &text)); // reported anew, e.g. after subtitles were switched on
    QCOMPARE(text, QByteArray("First line"));
    s.clear();
    QCOMPARE(s.cueCount(), 0);
    QVERIFY(s.update(700, &text));
    QCOMPARE(text, QByteArray());
}

void tst_SubtitleScheduler::openEndedCueEndsAtNextOrLimit()
{
    SubtitleScheduler s;
    s.add(1000, -1, "until next");
    s.add(3000, -1, "until limit");
    QCOMPARE(s.textAt(2999), QByteArray("until next"));
    QCOMPARE(s.textAt(3000), QByteArray("until limit"));
    QCOMPARE(s.textAt(3000 + SubtitleScheduler::kOpenEndedMs - 1), QByteArray("until limit"));
    QCOMPARE(s.textAt(3000 + SubtitleScheduler::kOpenEndedMs), QByteArray());
}

void tst_SubtitleScheduler::cueAtEndOfTimeLine_data()
{
    const qint64 last = std::numeric_limits<qint64>::max();
    QTest::addColumn<qint64>("start");
    QTest::addColumn<qint64>("duration");
    QTest::addColumn<qint64>("position");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("long cue late") << last - 10 << last << last - 1 << QByteArray("late");
    QTest::newRow("long cue before it") << last - 10 << last << last - 11 << QByteArray();
    QTest::newRow("open-ended late") << last - 10 << qint64(-1) << last - 1 << QByteArray("late");
    QTest::newRow("longest cue at 0") << qint64(0) << last << last - 1 << QByteArray("late");
}

// Start and duration as a subtitle file may state them: the end is clamped
// to the time line, never wrapped around to before the start.
void tst_SubtitleScheduler::cueAtEndOfTimeLine()
{
    QFETCH(qint64, start);
    QFETCH(qint64, duration);
    QFETCH(qint64, position);
    QFETCH(QByteArray, text);
    SubtitleScheduler s;
    s.add(start, duration, "late");
    QCOMPARE(s.textAt(position), text);
}

void tst_SubtitleScheduler::markup_data()
{
    QTest::addColumn<QByteArray>("markup");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("plain") << QByteArray("plain") << QByteArray("plain");
    QTest::newRow("tags") << QByteArray("<i>it</i> and <b>bold</b>") << QByteArray("it and bold");
    QTest::newRow("entities") << QByteArray("a &lt;b&gt; &amp; &quot;c&quot; &apos;d&apos;")
                              << QByteArray("a <b> & \"c\" 'd'");
    QTest::newRow("lone ampersand") << QByteArray("R&B") << QByteArray("R&B");
    QTest::newRow("utf-8") << QByteArray("<span foreground=\"red\">äöü</span>") << QByteArray("äöü");
}

void tst_SubtitleScheduler::markup()
{
    QFETCH(QByteArray, markup);
    QFETCH(QByteArray, text);
    QCOMPARE(SubtitleScheduler::plainTextFromMarkup(markup), text);
}

QTEST_GUILESS_MAIN(tst_SubtitleScheduler)
#include "tst_subtitlescheduler.moc"
