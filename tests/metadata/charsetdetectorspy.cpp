#include "charsetdetectorspy.h"

#include "qorviccharsetdetector_p.h"

#include <QtCore/QMutexLocker>

#include <atomic>

namespace orvictest {

namespace {
std::atomic<CharsetDetectorSpy *> g_spy{nullptr};
} // namespace

struct CharsetDetectorSpy::Handle {
    uchardet_t real = nullptr;     // when forwarding
    QByteArray firstFifth;         // the repeated text of the last hand-over
    QByteArray answer;             // kept alive until delete, like libuchardet's
};

CharsetDetectorSpy::CharsetDetectorSpy()
{
    CharsetDetectorSpy *expected = nullptr;
    if (!g_spy.compare_exchange_strong(expected, this))
        qFatal("CharsetDetectorSpy: only one at a time");
    m_previous = QOrvicCharsetDetector::install(&table());
}

CharsetDetectorSpy::~CharsetDetectorSpy()
{
    QOrvicCharsetDetector::install(m_previous);
    g_spy.store(nullptr);
}

CharsetDetectorSpy *CharsetDetectorSpy::self()
{
    CharsetDetectorSpy *spy = g_spy.load();
    if (!spy)
        qFatal("CharsetDetectorSpy: called while not installed");
    return spy;
}

void CharsetDetectorSpy::setAnswer(const QByteArray &charset)
{
    QMutexLocker lock(&m_mutex);
    m_answer = charset;
    m_nullAnswer = false;
}

void CharsetDetectorSpy::setAnswerFor(const QByteArray &text, const QByteArray &charset)
{
    QMutexLocker lock(&m_mutex);
    m_answers.insert(text, charset);
}

void CharsetDetectorSpy::setNullAnswer()
{
    QMutexLocker lock(&m_mutex);
    m_nullAnswer = true;
}

void CharsetDetectorSpy::setHandleResult(int result)
{
    QMutexLocker lock(&m_mutex);
    m_handleResult = result;
}

void CharsetDetectorSpy::setCreateFails(bool fails)
{
    QMutexLocker lock(&m_mutex);
    m_createFails = fails;
}

void CharsetDetectorSpy::forwardToLibuchardet(bool forward)
{
    QMutexLocker lock(&m_mutex);
    m_forward = forward;
}

QStringList CharsetDetectorSpy::calls() const
{
    QMutexLocker lock(&m_mutex);
    return m_calls;
}

QList<QByteArray> CharsetDetectorSpy::handedData() const
{
    QMutexLocker lock(&m_mutex);
    return m_handed;
}

int CharsetDetectorSpy::liveDetectors() const
{
    QMutexLocker lock(&m_mutex);
    return m_live;
}

void CharsetDetectorSpy::clear()
{
    QMutexLocker lock(&m_mutex);
    m_calls.clear();
    m_handed.clear();
}

void CharsetDetectorSpy::record(const QString &call)
{
    QMutexLocker lock(&m_mutex);
    m_calls.append(call);
}

uchardet_t CharsetDetectorSpy::create()
{
    CharsetDetectorSpy *spy = self();
    spy->record(QStringLiteral("new"));
    QMutexLocker lock(&spy->m_mutex);
    if (spy->m_createFails)
        return nullptr;
    auto *handle = new Handle;
    if (spy->m_forward)
        handle->real = QOrvicCharsetDetector::libuchardet().create();
    ++spy->m_live;
    return reinterpret_cast<uchardet_t>(handle);
}

int CharsetDetectorSpy::handleData(uchardet_t detector, const char *data, size_t length)
{
    CharsetDetectorSpy *spy = self();
    spy->record(QStringLiteral("handle_data(%1)").arg(length));
    auto *handle = reinterpret_cast<Handle *>(detector);
    const QByteArray bytes(data, int(length));
    handle->firstFifth = bytes.left(int(length / 5));
    QMutexLocker lock(&spy->m_mutex);
    spy->m_handed.append(bytes);
    if (handle->real) {
        const int result = QOrvicCharsetDetector::libuchardet().handleData(handle->real, data, length);
        return spy->m_handleResult != 0 ? spy->m_handleResult : result;
    }
    return spy->m_handleResult;
}

void CharsetDetectorSpy::dataEnd(uchardet_t detector)
{
    self()->record(QStringLiteral("data_end"));
    auto *handle = reinterpret_cast<Handle *>(detector);
    if (handle->real)
        QOrvicCharsetDetector::libuchardet().dataEnd(handle->real);
}

const char *CharsetDetectorSpy::charset(uchardet_t detector)
{
    CharsetDetectorSpy *spy = self();
    spy->record(QStringLiteral("get_charset"));
    auto *handle = reinterpret_cast<Handle *>(detector);
    if (handle->real)
        return QOrvicCharsetDetector::libuchardet().charset(handle->real);
    QMutexLocker lock(&spy->m_mutex);
    if (spy->m_nullAnswer)
        return nullptr;
    handle->answer = spy->m_answers.value(handle->firstFifth, spy->m_answer);
    return handle->answer.constData();
}

void CharsetDetectorSpy::destroy(uchardet_t detector)
{
    CharsetDetectorSpy *spy = self();
    spy->record(QStringLiteral("delete"));
    auto *handle = reinterpret_cast<Handle *>(detector);
    if (handle->real)
        QOrvicCharsetDetector::libuchardet().destroy(handle->real);
    delete handle;
    QMutexLocker lock(&spy->m_mutex);
    --spy->m_live;
}

const QOrvicCharsetDetector &CharsetDetectorSpy::table()
{
    static const QOrvicCharsetDetector table = {
        &CharsetDetectorSpy::create, &CharsetDetectorSpy::handleData, &CharsetDetectorSpy::dataEnd,
        &CharsetDetectorSpy::charset, &CharsetDetectorSpy::destroy,
    };
    return table;
}

} // namespace orvictest
