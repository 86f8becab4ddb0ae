#include "shell.h"

#include <QtCore/QCoreApplication>
#include <QtGui/QImage>
#include <QtGui/QPixmap>
#include <QtGui/QScreen>
#include <QtQuick/QQuickWindow>

#include <cstdio>

Shell::Shell(const QUrl &medium, qreal volume, bool quitAtEnd, const QString &screenshotPath, QObject *parent)
    : QObject(parent), m_medium(medium), m_volume(volume), m_quitAtEnd(quitAtEnd), m_screenshotPath(screenshotPath)
{
}

void Shell::setWindow(QQuickWindow *window)
{
    m_window = window;
}

void Shell::report(const QString &line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void Shell::finish(int code)
{
    if (m_finished)
        return;
    m_finished = true;
    // Queued: QML may ask while the player is still inside a call.
    QMetaObject::invokeMethod(QCoreApplication::instance(), [code] { QCoreApplication::exit(code); },
                              Qt::QueuedConnection);
}

void Shell::screenshot()
{
    if (m_screenshotPath.isEmpty() || !m_window) {
        report(QStringLiteral("error screenshot: no window or no file"));
        return;
    }
    // Grabbed once the scene as it is now has been drawn.
    disconnect(m_frameSwapped);
    m_frameSwapped = connect(m_window, &QQuickWindow::frameSwapped, this, [this] {
        disconnect(m_frameSwapped);
        writeScreenshot();
    }, Qt::QueuedConnection);
    m_window->update();
}

void Shell::writeScreenshot()
{
    if (!m_window)
        return;
    QImage picture = m_window->grabWindow();
    // Qt Quick's software renderer grabs through the platform's backing
    // store, which the offscreen platform cannot turn into an image; its
    // screen can grab the window's last frame instead.
    if (picture.isNull() && m_window->screen())
        picture = m_window->screen()->grabWindow(m_window->winId()).toImage();
    if (picture.isNull() || !picture.save(m_screenshotPath)) {
        report(QStringLiteral("error screenshot: cannot write %1").arg(m_screenshotPath));
        return;
    }
    report(QStringLiteral("screenshot %1 %2x%3").arg(m_screenshotPath).arg(picture.width()).arg(picture.height()));
}
