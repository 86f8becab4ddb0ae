// The host property store and the runtime directory, without a daemon:
// values shared through files, the rules for keys and values, the keys that
// belong to the service controller.
#include <cutils/properties.h>
#include <hostruntime.h>

#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <cstring>

#include <unistd.h>

class tst_HostProperties : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void runtimeDirectoryChoice();
    void initCreatesPrivateDirectory();
    void setThenGet();
    void missingKeyGivesDefault();
    void rejected_data();
    void rejected();
    void readOnlyKeysAreWrittenOnce();
    void statusWithoutDaemonIsStopped();
    void unknownServiceIsRefused();

private:
    QByteArray get(const char *key, const char *fallback = "") const;

    QTemporaryDir m_dir;
    QString m_runtime;
};

void tst_HostProperties::init()
{
    QVERIFY(m_dir.isValid());
    m_runtime = m_dir.path() + QStringLiteral("/rt");
    qputenv("ORVIC_RUNTIME_DIR", m_runtime.toUtf8());
}

void tst_HostProperties::cleanup()
{
    qunsetenv("ORVIC_RUNTIME_DIR");
}

QByteArray tst_HostProperties::get(const char *key, const char *fallback) const
{
    char value[PROPERTY_VALUE_MAX];
    std::memset(value, 'x', sizeof value);
    const int length = property_get(key, value, fallback);
    if (length < 0 || length >= PROPERTY_VALUE_MAX || value[length] != '\0')
        return "<bad answer>";
    return QByteArray(value, length);
}

void tst_HostProperties::runtimeDirectoryChoice()
{
    QCOMPARE(QString::fromStdString(hostruntime::runtimeDirectory()), m_runtime);
    const QByteArray xdg = qgetenv("XDG_RUNTIME_DIR");
    qunsetenv("ORVIC_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", "/run/user/4242");
    QCOMPARE(hostruntime::runtimeDirectory(), std::string("/run/user/4242/orvic"));
    qunsetenv("XDG_RUNTIME_DIR");
    QCOMPARE(hostruntime::runtimeDirectory(), "/tmp/orvic-" + std::to_string(getuid()));
    if (!xdg.isNull())
        qputenv("XDG_RUNTIME_DIR", xdg);
}

void tst_HostProperties::initCreatesPrivateDirectory()
{
    QVERIFY(!QFileInfo::exists(m_runtime));
    QCOMPARE(__system_properties_init(), 0);
    const QFileInfo info(m_runtime);
    QVERIFY(info.isDir());
    QCOMPARE(int(info.permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteOther)), 0);
    // Not a directory: unusable.
    qputenv("ORVIC_RUNTIME_DIR", QFile::encodeName(QStringLiteral("/dev/null")));
    QCOMPARE(__system_properties_init(), -1);
}

void tst_HostProperties::setThenGet()
{
    QCOMPARE(property_set("persist.orvic.volume", "35"), 0);
    QCOMPARE(get("persist.orvic.volume"), QByteArray("35"));
    QCOMPARE(property_set("persist.orvic.volume", "70"), 0);
    QCOMPARE(get("persist.orvic.volume"), QByteArray("70"));
    const QByteArray longest(PROPERTY_VALUE_MAX - 1, 'v');
    QCOMPARE(property_set("a.b", longest.constData()), 0);
    QCOMPARE(get("a.b"), longest);
    QCOMPARE(property_set("a.b", ""), 0);
    QCOMPARE(get("a.b", "default"), QByteArray());
    // Each key is a file of its own in the runtime directory.
    QVERIFY(QFileInfo::exists(m_runtime + QStringLiteral("/properties/persist.orvic.volume")));
}

void tst_HostProperties::missingKeyGivesDefault()
{
    QCOMPARE(get("no.such.key", "fallback"), QByteArray("fallback"));
    char value[PROPERTY_VALUE_MAX] = {'x'};
    QCOMPARE(property_get("no.such.key", value, nullptr), 0);
    QCOMPARE(value[0], '\0');
}

void tst_HostProperties::rejected_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("value too long") << QByteArray("too.long") << QByteArray(PROPERTY_VALUE_MAX, 'v');
    QTest::newRow("key too long") << QByteArray(PROPERTY_KEY_MAX, 'k') << QByteArray("1");
    QTest::newRow("empty key") << QByteArray() << QByteArray("1");
    QTest::newRow("slash in key") << QByteArray("a/b") << QByteArray("1");
    QTest::newRow("dot first") << QByteArray(".hidden") << QByteArray("1");
    QTest::newRow("blank in key") << QByteArray("a b") << QByteArray("1");
    QTest::newRow("service status") << QByteArray("init.svc.psserver") << QByteArray("running");
    QTest::newRow("other service status") << QByteArray("init.svc.other") << QByteArray("running");
}

void tst_HostProperties::rejected()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, value);
    QCOMPARE(property_set(key.constData(), value.constData()), -1);
    QCOMPARE(get(key.constData(), "unset"), key.startsWith("init.svc.psserver") ? QByteArray("stopped")
                                                                               : QByteArray("unset"));
}

void tst_HostProperties::readOnlyKeysAreWrittenOnce()
{
    QCOMPARE(property_set("ro.orvic.model", "pc"), 0);
    QCOMPARE(property_set("ro.orvic.model", "other"), -1);
    QCOMPARE(get("ro.orvic.model"), QByteArray("pc"));
}

void tst_HostProperties::statusWithoutDaemonIsStopped()
{
    QCOMPARE(get("init.svc.psserver", "unknown"), QByteArray("stopped"));
    QCOMPARE(property_set("ctl.stop", "psserver"), 0); // nothing to stop
    QCOMPARE(get("init.svc.psserver"), QByteArray("stopped"));
}

void tst_HostProperties::unknownServiceIsRefused()
{
    QCOMPARE(property_set("ctl.start", "otherservice"), -1);
    QCOMPARE(property_set("ctl.stop", "otherservice"), -1);
    QCOMPARE(get("init.svc.otherservice", "none"), QByteArray("none"));
    QCOMPARE(get("init.svc.psserver"), QByteArray("stopped"));
}

QTEST_GUILESS_MAIN(tst_HostProperties)
#include "tst_hostproperties.moc"
