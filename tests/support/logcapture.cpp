#include "logcapture.h"

#include <QtCore/QMutexLocker>

#include <atomic>

namespace orvictest {

namespace {
std::atomic<LogCapture *> g_current{nullptr};
}

QString LogEntry::functionName() const
{
    // The parameter list starts at the first '(' (no return type of ours holds
    // one); the name is the last word before it.
    const QString head = function.left(function.indexOf(QLatin1Char('(')));
    return head.mid(head.lastIndexOf(QLatin1Char(' ')) + 1);
}

LogCapture::LogCapture()
{
    g_current.store(this);
    m_previous = qInstallMessageHandler(&LogCapture::handler);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
    g_current.store(nullptr);
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (LogCapture *self = g_current.load()) {
        self->append({type, message, QString::fromUtf8(context.file), QString::fromUtf8(context.function),
                      context.line, QString::fromUtf8(context.category), QThread::currentThread()});
    }
}

void LogCapture::append(const LogEntry &entry)
{
    std::function<void(const LogEntry &)> observer;
    QList<std::function<void(const LogEntry &)>> extra;
    {
        QMutexLocker lock(&m_mutex);
        m_entries.append(entry);
        observer = m_observer;
        extra = m_extraObservers.values();
    }
    for (const auto &watch : qAsConst(extra))
        watch(entry);
    if (observer)
        observer(entry);
}

int LogCapture::addObserver(std::function<void(const LogEntry &)> observer)
{
    QMutexLocker lock(&m_mutex);
    const int id = m_nextObserverId++;
    m_extraObservers.insert(id, std::move(observer));
    return id;
}

void LogCapture::removeObserver(int id)
{
    QMutexLocker lock(&m_mutex);
    m_extraObservers.remove(id);
}

void LogCapture::setObserver(std::function<void(const LogEntry &)> observer)
{
    QMutexLocker lock(&m_mutex);
    m_observer = std::move(observer);
}

QList<LogEntry> LogCapture::entries() const
{
    QMutexLocker lock(&m_mutex);
    return m_entries;
}

QStringList LogCapture::lines() const
{
    QMutexLocker lock(&m_mutex);
    QStringList out;
    for (const LogEntry &e : m_entries)
        out.append(e.text);
    return out;
}

void LogCapture::clear()
{
    QMutexLocker lock(&m_mutex);
    m_entries.clear();
}

QRegularExpression LogCapture::pattern(const QString &expected)
{
    QString re = QRegularExpression::escape(expected);
    re.replace(QLatin1String("\\#"), QLatin1String("[0-9]+"));
    re.replace(QLatin1Char('#'), QLatin1String("[0-9]+"));
    return QRegularExpression(QRegularExpression::anchoredPattern(re));
}

int LogCapture::count(const QString &expected) const
{
    const QRegularExpression re = pattern(expected);
    int n = 0;
    for (const QString &l : lines()) {
        if (re.match(l).hasMatch())
            ++n;
    }
    return n;
}

int LogCapture::indexOf(const QString &expected, int from) const
{
    const QRegularExpression re = pattern(expected);
    const QStringList all = lines();
    for (int i = qMax(0, from); i < all.size(); ++i) {
        if (re.match(all.at(i)).hasMatch())
            return i;
    }
    return -1;
}

bool LogCapture::containsInOrder(const QStringList &expected) const
{
    int from = 0;
    for (const QString &e : expected) {
        const int at = indexOf(e, from);
        if (at < 0)
            return false;
        from = at + 1;
    }
    return true;
}

QStringList LogCapture::matching(const QString &regex) const
{
    const QRegularExpression re(regex);
    QStringList out;
    for (const QString &l : lines()) {
        if (re.match(l).hasMatch())
            out.append(l);
    }
    return out;
}

bool LogCapture::sameLines(const QStringList &actual, const QStringList &expected, QByteArray *why)
{
    const int n = qMax(actual.size(), expected.size());
    int differs = -1;
    for (int i = 0; i < n && differs < 0; ++i) {
        if (i >= actual.size() || i >= expected.size() || !pattern(expected.at(i)).match(actual.at(i)).hasMatch())
            differs = i;
    }
    if (differs >= 0 && why) {
        const QString none = QStringLiteral("<none>");
        *why = QStringLiteral("line %1: got \"%2\", expected \"%3\"")
                   .arg(differs)
                   .arg(actual.value(differs, none), expected.value(differs, none))
                   .toUtf8()
               + "\nactual:\n  " + actual.join(QLatin1String("\n  ")).toUtf8()
               + "\nexpected:\n  " + expected.join(QLatin1String("\n  ")).toUtf8();
    }
    return differs < 0;
}

QStringList LogCapture::linesFrom(const QString &signature) const
{
    QStringList out;
    for (const LogEntry &e : entries()) {
        if (e.function.contains(signature))
            out.append(e.text);
    }
    return out;
}

QList<LogEntry> LogCapture::entriesMatching(const QString &expected) const
{
    const QRegularExpression re = pattern(expected);
    QList<LogEntry> out;
    for (const LogEntry &e : entries()) {
        if (re.match(e.text).hasMatch())
            out.append(e);
    }
    return out;
}

} // namespace orvictest
