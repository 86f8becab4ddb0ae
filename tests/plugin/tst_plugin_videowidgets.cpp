// Qt's own video views through the back end plugin: a QVideoWidget and a
// QGraphicsVideoItem show the colour bars of a generated clip where the
// pattern puts them (drawn offscreen with QPainter).
#include "e2esupport.h"
#include "playerrecorder.h"

#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtMultimedia/QMediaPlayer>
#include <QtMultimediaWidgets/QGraphicsVideoItem>
#include <QtMultimediaWidgets/QVideoWidget>
#include <QtTest/QtTest>
#include <QtWidgets/QGraphicsScene>

#include <memory>

using namespace orvice2e;

namespace {

const int kLoadMs = 20000;

// The seven bars of the upper two thirds, left to right (75 % colours).
const QList<QRgb> kBars = {qRgb(192, 192, 192), qRgb(192, 192, 0), qRgb(0, 192, 192), qRgb(0, 192, 0),
                           qRgb(192, 0, 192), qRgb(192, 0, 0), qRgb(0, 0, 192)};

// Empty when `image` (the picture filling `area`) shows the bars, else the
// first one that does not match.
QString checkBars(const QImage &image, const QRect &area)
{
    const int y = area.top() + area.height() / 3;
    for (int i = 0; i < kBars.size(); ++i) {
        const int x = area.left() + int((i + 0.5) * area.width() / kBars.size());
        const QRgb seen = image.pixel(x, y);
        const QRgb want = kBars.at(i);
        if (qAbs(qRed(seen) - qRed(want)) > 40 || qAbs(qGreen(seen) - qGreen(want)) > 40
            || qAbs(qBlue(seen) - qBlue(want)) > 40)
            return QStringLiteral("bar %1 at (%2, %3): %4").arg(i).arg(x).arg(y).arg(QColor(seen).name());
    }
    return QString();
}

} // namespace

class tst_PluginVideoWidgets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void videoWidgetShowsBars();
    void graphicsVideoItemShowsBars();

private:
    std::unique_ptr<RuntimeDir> m_runtime;
    std::unique_ptr<QMediaPlayer> m_player;
    std::unique_ptr<PlayerRecorder> m_rec;
};

void tst_PluginVideoWidgets::init()
{
    m_runtime = std::make_unique<RuntimeDir>();
    QVERIFY(m_runtime->isValid());
    m_player = std::make_unique<QMediaPlayer>();
    m_rec = std::make_unique<PlayerRecorder>(m_player.get());
}

void tst_PluginVideoWidgets::cleanup()
{
    m_rec.reset();
    m_player.reset();
    m_runtime.reset();
}

void tst_PluginVideoWidgets::videoWidgetShowsBars()
{
    // 4:3 like the clip: the picture fills the widget.
    QVideoWidget widget;
    widget.resize(320, 240);
    m_player->setVideoOutput(&widget);
    widget.show();
    m_player->setMedia(QMediaContent(QUrl::fromLocalFile(mediaPath("bars25.mp4"))));
    m_player->pause();
    QTRY_COMPARE_WITH_TIMEOUT(m_player->mediaStatus(), QMediaPlayer::BufferedMedia, kLoadMs);
    // The paused picture stays; drawn once it has arrived.
    QString problem;
    QTRY_VERIFY2_WITH_TIMEOUT((problem = checkBars(widget.grab().toImage(), widget.rect())).isEmpty(),
                              qPrintable(problem), kLoadMs);
}

void tst_PluginVideoWidgets::graphicsVideoItemShowsBars()
{
    QGraphicsScene scene;
    auto *item = new QGraphicsVideoItem;
    item->setSize(QSizeF(320, 240));
    scene.addItem(item);
    m_player->setVideoOutput(item);
    m_player->setMedia(QMediaContent(QUrl::fromLocalFile(mediaPath("bars25.mp4"))));
    m_player->pause();
    QTRY_COMPARE_WITH_TIMEOUT(m_player->mediaStatus(), QMediaPlayer::BufferedMedia, kLoadMs);
    const auto render = [&scene] {
        QImage image(320, 240, QImage::Format_RGB32);
        image.fill(Qt::black);
        QPainter painter(&image);
        scene.render(&painter, QRectF(0, 0, 320, 240), QRectF(0, 0, 320, 240));
        return image;
    };
    QString problem;
    QTRY_VERIFY2_WITH_TIMEOUT((problem = checkBars(render(), QRect(0, 0, 320, 240))).isEmpty(),
                              qPrintable(problem), kLoadMs);
}

QTEST_MAIN(tst_PluginVideoWidgets)
#include "tst_plugin_videowidgets.moc"
