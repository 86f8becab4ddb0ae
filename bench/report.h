// From the samples of a run to the table (markdown, for the README), the
// JSON record and the data and script of the open-latency plot.
#ifndef ORVICBENCH_REPORT_H
#define ORVICBENCH_REPORT_H

#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace orvicbench {

using Samples = QMap<QString, QVector<double>>;

struct Summary
{
    int n = 0;
    double median = -1;
    double p25 = -1;
    double p75 = -1;
};
Summary summarize(QVector<double> values);

struct Medium
{
    QString tag;   // in sample keys
    QString label; // in the table and the plot
};

class Report
{
public:
    Report(const Samples &samples, const QVector<Medium> &media);

    // The rows that have no number of their own.
    QStringList missingRows() const;
    QString markdown() const;
    QJsonObject json() const;
    // Medians and quartiles of open -> metadata and open -> prepared of the
    // session, the stock player and our Qt back end per medium, one medium
    // a line, for gnuplot.
    QString plotData() const;
    static QString plotScript(const QString &dataFile, const QString &pngFile);

private:
    struct Reference
    {
        QString label;
        QString key; // the reference's samples; empty: `bound`
        double bound = -1;
    };
    struct Row
    {
        QString id;
        QString label;
        QString unit;
        QString key;
        Reference reference;
        double goal = -1; // largest ratio allowed; -1: none
    };
    struct Figures
    {
        Summary ours;
        Summary reference;
        double ratio = -1;
    };
    Figures figures(const Row &row) const;

    Samples m_samples;
    QVector<Medium> m_media;
    QVector<Row> m_rows;
};

} // namespace orvicbench

#endif // ORVICBENCH_REPORT_H
