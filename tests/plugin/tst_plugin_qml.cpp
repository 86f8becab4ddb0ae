// QML MediaPlayer through the back end plugin: the Qt Quick test in
// tst_plugin_qml.qml, with a runtime directory of its own for the service
// and the media folders and a probe of the chosen back end as context
// properties.
#include "e2esupport.h"
#include "samples.h"

#include <QtMultimedia/QMediaObject>
#include <QtMultimedia/QMediaService>
#include <QtQml/QQmlContext>
#include <QtQml/QQmlEngine>
#include <QtQuickTest/quicktest.h>

#include <memory>

class BackendProbe : public QObject
{
    Q_OBJECT
public:
    // Class name of the media service behind a QML MediaPlayer (its media
    // object is not scriptable: read from here).
    Q_INVOKABLE QString serviceClass(QObject *mediaPlayer) const
    {
        QObject *mediaObject = mediaPlayer ? mediaPlayer->property("mediaObject").value<QObject *>() : nullptr;
        auto *object = qobject_cast<QMediaObject *>(mediaObject);
        if (!object)
            return QStringLiteral("no media object: ") + (mediaObject ? mediaObject->metaObject()->className() : "null");
        return object->service() ? QString::fromLatin1(object->service()->metaObject()->className())
                                 : QStringLiteral("no service");
    }
};

class Setup : public QObject
{
    Q_OBJECT
public Q_SLOTS:
    void applicationAvailable() { m_runtime = std::make_unique<orvice2e::RuntimeDir>(); }
    void qmlEngineAvailable(QQmlEngine *engine)
    {
        QQmlContext *context = engine->rootContext();
        context->setContextProperty(QStringLiteral("mediaDir"),
                                    QUrl::fromLocalFile(orvice2e::mediaPath(QString())).toString());
        context->setContextProperty(QStringLiteral("samplesDir"),
                                    QUrl::fromLocalFile(samples::dir() + QLatin1Char('/')).toString());
        context->setContextProperty(QStringLiteral("gbkTitle"), samples::gbkTitle());
        context->setContextProperty(QStringLiteral("gbkArtist"), samples::gbkArtist());
        context->setContextProperty(QStringLiteral("backend"), &m_probe);
    }
    void cleanupTestCase() { m_runtime.reset(); }

private:
    std::unique_ptr<orvice2e::RuntimeDir> m_runtime;
    BackendProbe m_probe;
};

QUICK_TEST_MAIN_WITH_SETUP(tst_plugin_qml, Setup)

#include "tst_plugin_qml.moc"
