// What the QML side of qmlplayer needs from the program around it: the
// command line, lines on standard output, the exit, and a screenshot.
#ifndef SHELL_H
#define SHELL_H

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QUrl>

class QQuickWindow;

class Shell : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QUrl medium READ medium CONSTANT)
    Q_PROPERTY(qreal initialVolume READ initialVolume CONSTANT)
    Q_PROPERTY(bool quitAtEnd READ quitAtEnd CONSTANT)
    Q_PROPERTY(bool screenshotWanted READ screenshotWanted CONSTANT)

public:
    Shell(const QUrl &medium, qreal volume, bool quitAtEnd, const QString &screenshotPath,
          QObject *parent = nullptr);

    QUrl medium() const { return m_medium; }
    qreal initialVolume() const { return m_volume; }
    bool quitAtEnd() const { return m_quitAtEnd; }
    bool screenshotWanted() const { return !m_screenshotPath.isEmpty(); }

    void setWindow(QQuickWindow *window);

    // One line on standard output, in UTF-8.
    Q_INVOKABLE void report(const QString &line);
    // Leaves the event loop with `code`; the first outcome stands.
    Q_INVOKABLE void finish(int code);
    // Grabs the window, once its next frame is drawn, into the file given
    // with --screenshot and reports "screenshot <file> <width>x<height>", or
    // "error screenshot: ..." when it cannot.
    Q_INVOKABLE void screenshot();

private:
    void writeScreenshot();

    QUrl m_medium;
    qreal m_volume;
    bool m_quitAtEnd;
    QString m_screenshotPath;
    QPointer<QQuickWindow> m_window;
    QMetaObject::Connection m_frameSwapped;
    bool m_finished = false;
};

#endif // SHELL_H
