// Captures the library's log lines through the Qt message handler.
// Expected lines are written as the library prints them with "#" standing for
// the source line number, e.g. "D/OPSession manageActList(#):send msg 6 ".
#ifndef ORVICTEST_LOGCAPTURE_H
#define ORVICTEST_LOGCAPTURE_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QRegularExpression>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QThread>

#include <functional>

namespace orvictest {

struct LogEntry {
    QtMsgType type;
    QString text;
    QString file;
    QString function;
    int line;
    QString category;
    QThread *thread = nullptr;  // the logging thread

    // The logging function's qualified name, without return and parameter
    // types: "QOrvicPlayerSessionPrivate::setState" for "void
    // QOrvicPlayerSessionPrivate::setState(QOrvicPlayerSession::PlayerState)".
    QString functionName() const;
};

class LogCapture
{
public:
    LogCapture();   // installs the handler; nested captures are not supported
    ~LogCapture();  // restores the previous handler

    QList<LogEntry> entries() const;
    QStringList lines() const;
    void clear();

    // Regular expression for an expected line ("#" = any line number).
    static QRegularExpression pattern(const QString &expected);
    // Number of captured lines matching `expected` exactly.
    int count(const QString &expected) const;
    bool contains(const QString &expected) const { return count(expected) > 0; }
    // Index of the first line at or after `from` matching `expected`, or -1.
    int indexOf(const QString &expected, int from = 0) const;
    // True when the expected lines occur in this order (other lines may lie between).
    bool containsInOrder(const QStringList &expected) const;
    // Lines that match any of the expected patterns, in capture order.
    QStringList matching(const QString &regex) const;
    // True when `actual` holds exactly the `expected` lines ("#" = any number),
    // in order; otherwise `why` names the first difference and lists both.
    static bool sameLines(const QStringList &actual, const QStringList &expected, QByteArray *why);
    // Lines logged from functions whose full signature contains `signature`
    // (e.g. "QOrvicPlayerSessionPrivate::init()"), in capture order.
    QStringList linesFrom(const QString &signature) const;
    // Entries whose text matches `expected` ("#" = any number).
    QList<LogEntry> entriesMatching(const QString &expected) const;

    // Called for every captured line on the logging thread, after the line is
    // recorded and with no lock held, so it may block that thread (to hold a
    // command at a known point). Lines the observer logs itself are not captured.
    void setObserver(std::function<void(const LogEntry &)> observer);
    // Further observers beside that one (e.g. a state checker that watches
    // which operation logs), called the same way; the id removes one again.
    int addObserver(std::function<void(const LogEntry &)> observer);
    void removeObserver(int id);

private:
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &message);
    void append(const LogEntry &entry);

    mutable QMutex m_mutex;
    QList<LogEntry> m_entries;
    std::function<void(const LogEntry &)> m_observer;
    QMap<int, std::function<void(const LogEntry &)>> m_extraObservers;
    int m_nextObserverId = 0;
    QtMessageHandler m_previous;
};

} // namespace orvictest

// QtTest check of a whole sequence of lines with LogCapture::sameLines.
#define ORVIC_COMPARE_LINES(actual, expected)                                              \
    do {                                                                                   \
        QByteArray orvicWhy;                                                               \
        const bool orvicSame = orvictest::LogCapture::sameLines((actual), (expected), &orvicWhy); \
        QVERIFY2(orvicSame, orvicWhy.constData());                                         \
    } while (false)

#endif // ORVICTEST_LOGCAPTURE_H
