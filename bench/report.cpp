#include "report.h"

#include <QtCore/QJsonArray>

#include <algorithm>
#include <cmath>

namespace orvicbench {

namespace {

// Linear interpolation between the closest ranks.
double quantile(const QVector<double> &sorted, double q)
{
    if (sorted.isEmpty())
        return -1;
    const double pos = q * double(sorted.size() - 1);
    const int below = int(std::floor(pos));
    const int above = qMin(below + 1, sorted.size() - 1);
    return sorted.at(below) + (sorted.at(above) - sorted.at(below)) * (pos - below);
}

QString number(double value)
{
    if (value < 0)
        return QStringLiteral("—");
    if (value >= 100)
        return QString::number(value, 'f', 0);
    if (value >= 10)
        return QString::number(value, 'f', 1);
    return QString::number(value, 'f', 2);
}

QString cell(const Summary &s, const QString &unit)
{
    if (s.n == 0)
        return QStringLiteral("—");
    if (s.n == 1)
        return QStringLiteral("%1 %2").arg(number(s.median), unit);
    return QStringLiteral("%1 %2 (%3–%4)").arg(number(s.median), unit, number(s.p25), number(s.p75));
}

QJsonObject summaryJson(const Summary &s, const QVector<double> &values)
{
    QJsonArray all;
    for (double v : values)
        all.append(v);
    return QJsonObject{{QStringLiteral("n"), s.n},
                       {QStringLiteral("median"), s.median},
                       {QStringLiteral("p25"), s.p25},
                       {QStringLiteral("p75"), s.p75},
                       {QStringLiteral("samples"), all}};
}

} // namespace

Summary summarize(QVector<double> values)
{
    Summary s;
    std::sort(values.begin(), values.end());
    s.n = values.size();
    if (s.n == 0)
        return s;
    s.median = quantile(values, 0.5);
    s.p25 = quantile(values, 0.25);
    s.p75 = quantile(values, 0.75);
    return s;
}

Report::Report(const Samples &samples, const QVector<Medium> &media)
    : m_samples(samples), m_media(media)
{
    const QString stock = QStringLiteral("stock QMediaPlayer");
    const QString ms = QStringLiteral("ms");
    const QString us = QStringLiteral("µs");
    for (const Medium &m : media) {
        m_rows.append({QStringLiteral("open_metadata.") + m.tag, QStringLiteral("open → metadata, ") + m.label, ms,
                       QStringLiteral("open_metadata.%1/ours").arg(m.tag),
                       {stock, {QStringLiteral("open_metadata.%1/stock").arg(m.tag)}}, 0.8});
    }
    for (const Medium &m : media) {
        m_rows.append({QStringLiteral("open_prepared.") + m.tag, QStringLiteral("open → prepared, ") + m.label, ms,
                       QStringLiteral("open_prepared.%1/ours").arg(m.tag),
                       {stock, {QStringLiteral("open_prepared.%1/stock").arg(m.tag)}}, 1.0});
    }
    m_rows.append({QStringLiteral("play"), QStringLiteral("play → playing (first position advance), MP4"), ms,
                   QStringLiteral("play/ours"), {stock, {QStringLiteral("play/stock")}}, 1.0});
    // Our Qt Multimedia back end: QMediaPlayer on the session, against the
    // same class on Qt's GStreamer back end (LoadedMedia is its "prepared").
    const QString viaQt = QStringLiteral(", through QMediaPlayer (our Qt back end)");
    for (const Medium &m : media) {
        m_rows.append({QStringLiteral("qt_open_metadata.") + m.tag, QStringLiteral("open → metadata, ") + m.label + viaQt,
                       ms, QStringLiteral("open_metadata.%1/qt").arg(m.tag),
                       {stock, {QStringLiteral("open_metadata.%1/stock").arg(m.tag)}}, 0.8});
    }
    for (const Medium &m : media) {
        m_rows.append({QStringLiteral("qt_open_loaded.") + m.tag, QStringLiteral("open → loaded, ") + m.label + viaQt,
                       ms, QStringLiteral("open_prepared.%1/qt").arg(m.tag),
                       {stock, {QStringLiteral("open_prepared.%1/stock").arg(m.tag)}}, 1.0});
    }
    m_rows.append({QStringLiteral("qt_play"), QStringLiteral("play → playing (first position advance), MP4") + viaQt, ms,
                   QStringLiteral("play/qt"), {stock, {QStringLiteral("play/stock")}}, 1.0});
    m_rows.append({QStringLiteral("seek_playing"), QStringLiteral("seek while playing → running from the target, MP4"), ms,
                   QStringLiteral("seek_playing/ours"), {stock, {QStringLiteral("seek_playing/stock")}}, -1});
    m_rows.append({QStringLiteral("seek_paused"), QStringLiteral("seek while paused → position at the target, MP4"), ms,
                   QStringLiteral("seek_paused/ours"), {stock, {QStringLiteral("seek_paused/stock")}}, -1});
    m_rows.append({QStringLiteral("cmd_owner"), QStringLiteral("volume command round trip, owner thread"), us,
                   QStringLiteral("cmd_owner/ours"),
                   {QStringLiteral("bare request/answer on the service socket"), {QStringLiteral("floor_socket")}}, 1.5});
    m_rows.append({QStringLiteral("cmd_other"), QStringLiteral("volume command round trip, other thread"), us,
                   QStringLiteral("cmd_other/ours"),
                   {QStringLiteral("bare queued signal to the owner thread, bare socket request/answer there, "
                                   "queued signal back, paced like the command"),
                    {QStringLiteral("floor_other")}}, 1.5});
    const QString otherFloor = QStringLiteral("the other thread's floor (above)");
    m_rows.append({QStringLiteral("floor_queued"),
                   QStringLiteral("(where it goes) bare queued signal there and back, paced like the command"), us,
                   QStringLiteral("floor_queued"), {otherFloor, {QStringLiteral("floor_other")}}, -1});
    m_rows.append({QStringLiteral("floor_socket"),
                   QStringLiteral("(where it goes) bare request/answer on the service socket, back to back"), us,
                   QStringLiteral("floor_socket"), {otherFloor, {QStringLiteral("floor_other")}}, -1});
    m_rows.append({QStringLiteral("engine_call"),
                   QStringLiteral("(where it goes) bare call answered by psserver's engine thread, no client library"),
                   us, QStringLiteral("engine_call"),
                   {QStringLiteral("bare request/answer on the service socket"), {QStringLiteral("floor_socket")}}, -1});
    m_rows.append({QStringLiteral("socket_idle"),
                   QStringLiteral("(where it goes) bare request/answer on the service socket after 1 ms of quiet, "
                                  "as between the other thread's commands"),
                   us, QStringLiteral("floor_socket_idle"),
                   {QStringLiteral("bare request/answer on the service socket"), {QStringLiteral("floor_socket")}}, -1});
    m_rows.append({QStringLiteral("detect"), QStringLiteral("detectEncoding, tag-sized text (CPU time per call)"), us,
                   QStringLiteral("detect/ours"),
                   {QStringLiteral("bare uchardet on the same five copies"), {QStringLiteral("detect/uchardet")}}, 1.1});
    m_rows.append({QStringLiteral("recovery_kill"), QStringLiteral("recovery after SIGKILL of psserver"), ms,
                   QStringLiteral("recovery_kill/ours"), {QStringLiteral("bound"), {}, 300}, 1.0});
    m_rows.append({QStringLiteral("recovery_stop"), QStringLiteral("recovery after SIGSTOP of psserver"), ms,
                   QStringLiteral("recovery_stop/ours"),
                   {QStringLiteral("bound: stall window (10 × 100 ms) + 300 ms"), {}, 1300}, 1.0});
    const QString single = QStringLiteral("one session alone");
    for (int n : {4, 16}) {
        m_rows.append({QStringLiteral("concurrent_open.%1").arg(n),
                       QStringLiteral("open → metadata per session, %1 sessions at once, MP4").arg(n), ms,
                       QStringLiteral("concurrent_open.%1/ours").arg(n),
                       {single, {QStringLiteral("concurrent_open.1/ours")}}, n == 16 ? 2.0 : -1});
    }
    for (int n : {1, 4, 16}) {
        m_rows.append({QStringLiteral("concurrent_cpu.%1").arg(n),
                       QStringLiteral("psserver CPU per session, open + 2 s of play, %1 session%2").arg(n).arg(n > 1 ? "s" : ""),
                       ms, QStringLiteral("concurrent_cpu.%1/ours").arg(n),
                       {n > 1 ? single : QString(), n > 1 ? QStringLiteral("concurrent_cpu.1/ours") : QString()}, -1});
    }
    m_rows.append({QStringLiteral("memory"), QStringLiteral("resident size, one playing session: client + psserver, MP4"),
                   QStringLiteral("MiB"), QStringLiteral("memory/ours"),
                   {QStringLiteral("stock player's process"), {QStringLiteral("memory/stock")}}, -1});
}

Report::Figures Report::figures(const Row &row) const
{
    Figures f;
    f.ours = summarize(m_samples.value(row.key));
    if (!row.reference.key.isEmpty()) {
        f.reference = summarize(m_samples.value(row.reference.key));
    } else if (row.reference.bound > 0) {
        f.reference.n = 1;
        f.reference.median = f.reference.p25 = f.reference.p75 = row.reference.bound;
    }
    if (f.ours.n > 0 && f.reference.n > 0 && f.reference.median > 0)
        f.ratio = f.ours.median / f.reference.median;
    return f;
}

QStringList Report::missingRows() const
{
    QStringList missing;
    for (const Row &row : m_rows) {
        const Figures f = figures(row);
        if (f.ours.n == 0 || (!row.reference.key.isEmpty() && f.reference.n == 0))
            missing.append(row.id);
    }
    return missing;
}

QString Report::markdown() const
{
    QString out;
    out += QStringLiteral("| Measure | Ours: median (p25–p75) | Reference | Reference: median (p25–p75) | Ratio | Goal |\n");
    out += QStringLiteral("|---|---|---|---|---|---|\n");
    for (const Row &row : m_rows) {
        const Figures f = figures(row);
        QString goal = QStringLiteral("—");
        if (row.goal > 0 && f.ratio >= 0)
            goal = QStringLiteral("≤ %1×: %2").arg(row.goal).arg(f.ratio <= row.goal ? "met" : "missed");
        else if (row.goal > 0)
            goal = QStringLiteral("≤ %1×").arg(row.goal);
        out += QStringLiteral("| %1 | %2 | %3 | %4 | %5 | %6 |\n")
                       .arg(row.label, cell(f.ours, row.unit),
                            row.reference.label.isEmpty() ? QStringLiteral("—") : row.reference.label,
                            f.reference.n == 0 ? QStringLiteral("—") : cell(f.reference, row.unit),
                            f.ratio >= 0 ? QString::number(f.ratio, 'f', 2) + QStringLiteral("×") : QStringLiteral("—"),
                            goal);
    }
    return out;
}

QJsonObject Report::json() const
{
    QJsonArray rows;
    for (const Row &row : m_rows) {
        const Figures f = figures(row);
        QJsonObject reference{{QStringLiteral("label"), row.reference.label}};
        if (!row.reference.key.isEmpty()) {
            reference.insert(QStringLiteral("figures"), summaryJson(f.reference, m_samples.value(row.reference.key)));
        } else {
            reference.insert(QStringLiteral("bound"), row.reference.bound);
        }
        QJsonObject o{{QStringLiteral("id"), row.id},
                      {QStringLiteral("label"), row.label},
                      {QStringLiteral("unit"), row.unit},
                      {QStringLiteral("ours"), summaryJson(f.ours, m_samples.value(row.key))},
                      {QStringLiteral("reference"), reference}};
        if (f.ratio >= 0)
            o.insert(QStringLiteral("ratio"), f.ratio);
        if (row.goal > 0) {
            o.insert(QStringLiteral("goal_ratio"), row.goal);
            if (f.ratio >= 0)
                o.insert(QStringLiteral("goal_met"), f.ratio <= row.goal);
        }
        rows.append(o);
    }
    QJsonObject all;
    for (auto it = m_samples.cbegin(); it != m_samples.cend(); ++it) {
        QJsonArray values;
        for (double v : it.value())
            values.append(v);
        all.insert(it.key(), values);
    }
    return QJsonObject{{QStringLiteral("rows"), rows}, {QStringLiteral("samples"), all}};
}

QString Report::plotData() const
{
    // Every player's open latencies side by side: the session, the stock
    // player and our Qt back end (whose "prepared" is LoadedMedia).
    QString out = QStringLiteral("# medium  ours-metadata p25 p75  stock-metadata p25 p75  qt-metadata p25 p75"
                                 "  ours-prepared p25 p75  stock-prepared p25 p75  qt-loaded p25 p75 (ms)\n");
    for (const Medium &m : m_media) {
        QString line = QStringLiteral("\"%1\"").arg(m.label);
        for (const QString &key : {QStringLiteral("open_metadata.%1/ours"), QStringLiteral("open_metadata.%1/stock"),
                                   QStringLiteral("open_metadata.%1/qt"), QStringLiteral("open_prepared.%1/ours"),
                                   QStringLiteral("open_prepared.%1/stock"), QStringLiteral("open_prepared.%1/qt")}) {
            const Summary s = summarize(m_samples.value(key.arg(m.tag)));
            // gnuplot skips "NaN" bars of a medium that gave no number.
            if (s.n == 0)
                line += QStringLiteral(" NaN NaN NaN");
            else
                line += QStringLiteral(" %1 %2 %3").arg(s.median).arg(s.p25).arg(s.p75);
        }
        out += line + QLatin1Char('\n');
    }
    return out;
}

QString Report::plotScript(const QString &dataFile, const QString &pngFile)
{
    return QStringLiteral(
                   "set terminal pngcairo size 1300,560 noenhanced font 'sans,10'\n"
                   "set output '%2'\n"
                   "set title 'Open latency per medium: session on psserver, our Qt back end (QMediaPlayer on the session) "
                   "and stock QMediaPlayer (median, bars p25–p75)'\n"
                   "set ylabel 'ms'\n"
                   "set yrange [0:*]\n"
                   "set style data histogram\n"
                   "set style histogram errorbars gap 2 lw 1\n"
                   "set style fill solid 0.8 border -1\n"
                   "set key top left\n"
                   "set grid ytics\n"
                   "set xtics rotate by -15\n"
                   "plot '%1' using 2:3:4:xtic(1) title 'session: open → metadata' lc rgb '#1f77b4', \\\n"
                   "     '' using 8:9:10 title 'Qt back end: open → metadata' lc rgb '#2ca02c', \\\n"
                   "     '' using 5:6:7 title 'stock: open → metadata' lc rgb '#ff7f0e', \\\n"
                   "     '' using 11:12:13 title 'session: open → prepared' lc rgb '#aec7e8', \\\n"
                   "     '' using 17:18:19 title 'Qt back end: open → loaded' lc rgb '#98df8a', \\\n"
                   "     '' using 14:15:16 title 'stock: open → loaded' lc rgb '#ffbb78'\n")
            .arg(dataFile, pngFile);
}

} // namespace orvicbench
