// The benchmark report: medians and quartiles, ratios against the reference
// of each row, goals, and the rows that have no number (which fail a run).
#include "report.h"

#include <QtCore/QJsonArray>
#include <QtTest/QtTest>

using orvicbench::Medium;
using orvicbench::Report;
using orvicbench::Samples;
using orvicbench::Summary;

namespace {

const QVector<Medium> kOneMedium = {{QStringLiteral("mp3"), QStringLiteral("MP3")}};

// Every row of the report with the single medium, one sample each.
Samples completeSamples()
{
    Samples s;
    for (const char *key :
         {"open_metadata.mp3/ours", "open_metadata.mp3/stock", "open_prepared.mp3/ours", "open_prepared.mp3/stock",
          "play/ours", "play/stock", "seek_playing/ours", "seek_playing/stock", "seek_paused/ours",
          "seek_paused/stock", "cmd_owner/ours", "cmd_other/ours", "floor_queued", "floor_socket", "floor_other", "engine_call", "floor_socket_idle",
          "detect/ours", "detect/uchardet", "recovery_kill/ours", "recovery_stop/ours", "concurrent_open.1/ours",
          "concurrent_open.4/ours", "concurrent_open.16/ours", "concurrent_cpu.1/ours", "concurrent_cpu.4/ours",
          "concurrent_cpu.16/ours", "memory/ours", "memory/stock", "open_metadata.mp3/qt",
          "open_prepared.mp3/qt", "play/qt"})
        s[QString::fromLatin1(key)] = {10.0};
    return s;
}

QJsonObject row(const QJsonObject &json, const QString &id)
{
    for (const QJsonValue &v : json.value("rows").toArray()) {
        if (v.toObject().value("id").toString() == id)
            return v.toObject();
    }
    return QJsonObject();
}

} // namespace

class tst_BenchReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void summarize_data();
    void summarize();
    void ratioAndGoal_data();
    void ratioAndGoal();
    void otherThreadFloor();
    void boundReference();
    void missingRows();
    void qtBackEndRows_data();
    void qtBackEndRows();
    void tableRowText();
    void plotColumns_data();
    void plotColumns();
};

void tst_BenchReport::summarize_data()
{
    QTest::addColumn<QVector<double>>("values");
    QTest::addColumn<int>("n");
    QTest::addColumn<double>("median");
    QTest::addColumn<double>("p25");
    QTest::addColumn<double>("p75");
    QTest::newRow("none") << QVector<double>{} << 0 << -1.0 << -1.0 << -1.0;
    QTest::newRow("one") << QVector<double>{7} << 1 << 7.0 << 7.0 << 7.0;
    QTest::newRow("odd, unsorted") << QVector<double>{5, 1, 3, 2, 4} << 5 << 3.0 << 2.0 << 4.0;
    QTest::newRow("even: interpolated") << QVector<double>{4, 1, 3, 2} << 4 << 2.5 << 1.75 << 3.25;
}

void tst_BenchReport::summarize()
{
    QFETCH(QVector<double>, values);
    QFETCH(int, n);
    QFETCH(double, median);
    QFETCH(double, p25);
    QFETCH(double, p75);
    const Summary s = orvicbench::summarize(values);
    QCOMPARE(s.n, n);
    QCOMPARE(s.median, median);
    QCOMPARE(s.p25, p25);
    QCOMPARE(s.p75, p75);
}

void tst_BenchReport::ratioAndGoal_data()
{
    QTest::addColumn<double>("ours");
    QTest::addColumn<double>("stock");
    QTest::addColumn<double>("ratio");
    QTest::addColumn<bool>("met");
    // open -> metadata has to be at most 0.8 times the stock player's.
    QTest::newRow("faster") << 7.0 << 10.0 << 0.7 << true;
    QTest::newRow("at the goal") << 8.0 << 10.0 << 0.8 << true;
    QTest::newRow("slower") << 12.0 << 10.0 << 1.2 << false;
}

void tst_BenchReport::ratioAndGoal()
{
    QFETCH(double, ours);
    QFETCH(double, stock);
    QFETCH(double, ratio);
    QFETCH(bool, met);
    Samples s = completeSamples();
    s["open_metadata.mp3/ours"] = {ours, ours + 1, ours - 1};
    s["open_metadata.mp3/stock"] = {stock};
    const QJsonObject r = row(Report(s, kOneMedium).json(), "open_metadata.mp3");
    QCOMPARE(r.value("ratio").toDouble(), ratio);
    QCOMPARE(r.value("goal_ratio").toDouble(), 0.8);
    QCOMPARE(r.value("goal_met").toBool(), met);
}

double referenceMedian(const QJsonObject &row)
{
    return row.value("reference").toObject().value("figures").toObject().value("median").toDouble();
}

// The other thread's command is held against its own floor, measured like
// it; the floor's parts are shown against that floor, without a goal.
void tst_BenchReport::otherThreadFloor()
{
    Samples s = completeSamples();
    s["cmd_other/ours"] = {90};
    s["floor_other"] = {50, 60, 70};
    s["floor_queued"] = {10, 20, 30};
    s["floor_socket"] = {40};
    const QJsonObject json = Report(s, kOneMedium).json();
    const QJsonObject r = row(json, "cmd_other");
    QCOMPARE(referenceMedian(r), 60.0);
    QCOMPARE(r.value("ratio").toDouble(), 1.5);
    QCOMPARE(r.value("goal_met").toBool(), true);
    const QJsonObject queued = row(json, "floor_queued");
    QCOMPARE(queued.value("ours").toObject().value("median").toDouble(), 20.0);
    QCOMPARE(referenceMedian(queued), 60.0);
    QVERIFY(!queued.contains("goal_met"));
    const QJsonObject socket = row(json, "floor_socket");
    QCOMPARE(socket.value("ours").toObject().value("median").toDouble(), 40.0);
    QCOMPARE(referenceMedian(socket), 60.0);
}

// Recovery is held against a fixed bound, not a measured reference.
void tst_BenchReport::boundReference()
{
    Samples s = completeSamples();
    s["recovery_stop/ours"] = {1400, 1500, 1300};
    const QJsonObject r = row(Report(s, kOneMedium).json(), "recovery_stop");
    QCOMPARE(r.value("reference").toObject().value("bound").toDouble(), 1300.0);
    QCOMPARE(r.value("ratio").toDouble(), 1400.0 / 1300.0);
    QCOMPARE(r.value("goal_met").toBool(), false);
}

void tst_BenchReport::missingRows()
{
    QCOMPARE(Report(completeSamples(), kOneMedium).missingRows(), QStringList());
    Samples s = completeSamples();
    s.remove("open_prepared.mp3/stock"); // a reference without a number
    s.remove("recovery_kill/ours");      // a row without a number
    s.remove("concurrent_cpu.1/ours");   // also the reference of two rows
    QCOMPARE(Report(s, kOneMedium).missingRows(),
             QStringList({"open_prepared.mp3", "qt_open_loaded.mp3", "recovery_kill", "concurrent_cpu.1",
                          "concurrent_cpu.4", "concurrent_cpu.16"}));
}

// The Qt back end's rows: its own samples against the stock player's.
void tst_BenchReport::qtBackEndRows_data()
{
    QTest::addColumn<QString>("removed");
    QTest::addColumn<QString>("row");
    QTest::newRow("metadata") << "open_metadata.mp3/qt" << "qt_open_metadata.mp3";
    QTest::newRow("loaded") << "open_prepared.mp3/qt" << "qt_open_loaded.mp3";
    QTest::newRow("play") << "play/qt" << "qt_play";
}

void tst_BenchReport::qtBackEndRows()
{
    QFETCH(QString, removed);
    QFETCH(QString, row);
    Samples s = completeSamples();
    s.remove(removed);
    QCOMPARE(Report(s, kOneMedium).missingRows(), QStringList{row});

    s = completeSamples();
    s[removed] = {30};
    const QJsonObject r = ::row(Report(s, kOneMedium).json(), row);
    QCOMPARE(r.value("ratio").toDouble(), 3.0);
}

void tst_BenchReport::tableRowText()
{
    Samples s = completeSamples();
    s["open_metadata.mp3/ours"] = {12, 8, 10};
    s["open_metadata.mp3/stock"] = {20};
    const QStringList lines = Report(s, kOneMedium).markdown().split('\n');
    QCOMPARE(lines.value(2), QStringLiteral("| open → metadata, MP3 | 10.0 ms (9.00–11.0) | stock QMediaPlayer | "
                                            "20.0 ms | 0.50× | ≤ 0.8×: met |"));
}

// The plot's data: per medium the three players' open latencies, in the
// columns the plot script names, and NaN where a player gave no number.
void tst_BenchReport::plotColumns_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("column"); // gnuplot's, from 1; the medium is 1
    QTest::newRow("session metadata") << "open_metadata.mp3/ours" << 2;
    QTest::newRow("stock metadata") << "open_metadata.mp3/stock" << 5;
    QTest::newRow("Qt back end metadata") << "open_metadata.mp3/qt" << 8;
    QTest::newRow("session prepared") << "open_prepared.mp3/ours" << 11;
    QTest::newRow("stock loaded") << "open_prepared.mp3/stock" << 14;
    QTest::newRow("Qt back end loaded") << "open_prepared.mp3/qt" << 17;
}

void tst_BenchReport::plotColumns()
{
    QFETCH(QString, key);
    QFETCH(int, column);
    Samples s = completeSamples();
    s[key] = {40, 20, 30};
    const QStringList lines = Report(s, kOneMedium).plotData().split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QVERIFY(lines.at(0).startsWith('#'));
    const QStringList fields = lines.at(1).split(' ');
    QCOMPARE(fields.size(), 19);
    QCOMPARE(fields.at(0), QStringLiteral("\"MP3\""));
    for (int c = 2; c <= 19; c += 3) {
        const QStringList expected = c == column ? QStringList{"30", "25", "35"} : QStringList{"10", "10", "10"};
        QCOMPARE(fields.mid(c - 1, 3), expected);
    }
    QVERIFY(Report::plotScript("d", "p").contains(QStringLiteral("using %1:%2:%3").arg(column).arg(column + 1).arg(column + 2)));

    s.remove(key);
    const QStringList without = Report(s, kOneMedium).plotData().split('\n', Qt::SkipEmptyParts);
    QCOMPARE(without.at(1).split(' ').mid(column - 1, 3), (QStringList{"NaN", "NaN", "NaN"}));
}

QTEST_GUILESS_MAIN(tst_BenchReport)
#include "tst_benchreport.moc"
