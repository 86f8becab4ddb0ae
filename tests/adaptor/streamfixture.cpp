#include "streamfixture.h"

#include <QtTest/QtTest>

namespace orvictest {

QString mapSignal(const QStringList &keys)
{
    return QStringLiteral("metadataChanged(%1 keys)").arg(keys.size());
}

void StreamFixture::setUp()
{
    h.reset(new AdaptorHarness);
}

void StreamFixture::tearDown()
{
    QCOMPARE(closeHarness(h), QString());
}

void StreamFixture::openMedium(Medium medium, const QString &url)
{
    h->useMedium(medium);
    h->alsoForNewPlayers([](ScriptedPlayer *p) { p->script().setDefault("getVolume", 50); });
    h->start();
    QCOMPARE(h->session->volume(), 50);
    QVERIFY(!h->session->isMuted());
    h->d->setMedia(url);
    h->clear();
}

} // namespace orvictest
