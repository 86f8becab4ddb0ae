// A charset detector for the metadata tests, installed in place of
// libuchardet for its lifetime. It records every call with what it was
// handed and answers as scripted, or passes the calls on to libuchardet.
// Each detector it creates is a heap object freed by its delete call, so a
// detector the code under test forgets shows up as a leak.
#ifndef ORVICTEST_CHARSETDETECTORSPY_H
#define ORVICTEST_CHARSETDETECTORSPY_H

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QStringList>

#include <uchardet.h>

struct QOrvicCharsetDetector;

namespace orvictest {

class CharsetDetectorSpy
{
public:
    CharsetDetectorSpy();   // installs itself; one at a time
    ~CharsetDetectorSpy();  // restores the previous detector

    // Scripted answers (ignored when forwarding). setAnswerFor() keys on the
    // text that was repeated, i.e. the first fifth of what was handed over.
    void setAnswer(const QByteArray &charset);
    void setAnswerFor(const QByteArray &text, const QByteArray &charset);
    void setNullAnswer();                  // uchardet_get_charset returns null
    void setHandleResult(int result);      // uchardet_handle_data's return
    void setCreateFails(bool fails);       // uchardet_new returns null
    void forwardToLibuchardet(bool forward);

    // "new", "handle_data(15)", "data_end", "get_charset", "delete".
    QStringList calls() const;
    QList<QByteArray> handedData() const;  // each handle_data buffer
    int liveDetectors() const;
    void clear();

private:
    static CharsetDetectorSpy *self();
    static const QOrvicCharsetDetector &table();
    struct Handle;
    static uchardet_t create();
    static int handleData(uchardet_t detector, const char *data, size_t length);
    static void dataEnd(uchardet_t detector);
    static const char *charset(uchardet_t detector);
    static void destroy(uchardet_t detector);

    void record(const QString &call);

    mutable QMutex m_mutex;
    QStringList m_calls;
    QList<QByteArray> m_handed;
    QByteArray m_answer;
    bool m_nullAnswer = false;
    QHash<QByteArray, QByteArray> m_answers;
    int m_handleResult = 0;
    bool m_createFails = false;
    bool m_forward = false;
    int m_live = 0;
    const QOrvicCharsetDetector *m_previous;
};

} // namespace orvictest

#endif // ORVICTEST_CHARSETDETECTORSPY_H
