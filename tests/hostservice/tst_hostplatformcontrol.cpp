// Vendor item 104 (the system codec) of the host platform control: from the
// environment, else from the platform config file, else empty.
#include <spplfctrl/spplatformcontrol.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

class tst_HostPlatformControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void systemCodec_data();
    void systemCodec();
    void configUnderXdgConfigHome();
    void configChangesAreSeen();
    void otherItemsAreEmpty();
    void lengthIsRespected();
    void badBufferIsRefused();

private:
    QByteArray read(int item, int length = 32);
    void writeConfig(const QString &path, const QByteArray &text);

    QTemporaryDir m_dir;
};

void tst_HostPlatformControl::init()
{
    QVERIFY(m_dir.isValid());
    qunsetenv("ORVIC_SYSTEM_CODEC");
    qputenv("ORVIC_PLATFORM_CONFIG", QFile::encodeName(m_dir.filePath("platform.conf")));
}

void tst_HostPlatformControl::cleanup()
{
    qunsetenv("ORVIC_SYSTEM_CODEC");
    qunsetenv("ORVIC_PLATFORM_CONFIG");
    QFile::remove(m_dir.filePath("platform.conf"));
}

QByteArray tst_HostPlatformControl::read(int item, int length)
{
    spplfctrl::SPPlatformControl *control = spplfctrl::SPPlatformControl::GetInstance();
    QByteArray buffer(64, 'x');
    const int result = control->Vendor_Data_Read_String(item, length, buffer.data());
    spplfctrl::SPPlatformControl::ReleaseInstance(control);
    if (result != 0)
        return "<failed>";
    return QByteArray(buffer.constData(), qMin(int(qstrnlen(buffer.constData(), length)), length));
}

void tst_HostPlatformControl::writeConfig(const QString &path, const QByteArray &text)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text);
}

void tst_HostPlatformControl::systemCodec_data()
{
    QTest::addColumn<QByteArray>("environment"); // null: unset
    QTest::addColumn<QByteArray>("config");      // null: no file
    QTest::addColumn<QByteArray>("codec");

    QTest::newRow("nothing") << QByteArray() << QByteArray() << QByteArray();
    QTest::newRow("environment") << QByteArray("GBK") << QByteArray() << QByteArray("GBK");
    QTest::newRow("config") << QByteArray() << QByteArray("system_codec = windows-1251\n")
                            << QByteArray("windows-1251");
    QTest::newRow("environment wins") << QByteArray("GBK") << QByteArray("system_codec=BIG5\n")
                                      << QByteArray("GBK");
    QTest::newRow("set but empty wins") << QByteArray("") << QByteArray("system_codec=BIG5\n") << QByteArray();
    QTest::newRow("comments and other keys")
            << QByteArray() << QByteArray("# system_codec=UTF-8\nother=1\n  system_codec\t=  SHIFT_JIS  # jp\n")
            << QByteArray("SHIFT_JIS");
    QTest::newRow("key missing") << QByteArray() << QByteArray("codec=GBK\n") << QByteArray();
}

void tst_HostPlatformControl::systemCodec()
{
    QFETCH(QByteArray, environment);
    QFETCH(QByteArray, config);
    QFETCH(QByteArray, codec);
    if (!environment.isNull())
        qputenv("ORVIC_SYSTEM_CODEC", environment);
    if (!config.isNull())
        writeConfig(m_dir.filePath("platform.conf"), config);
    QCOMPARE(read(104), codec);
}

void tst_HostPlatformControl::configUnderXdgConfigHome()
{
    qunsetenv("ORVIC_PLATFORM_CONFIG");
    const QByteArray previous = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir.path()));
    QVERIFY(QDir(m_dir.path()).mkpath("orvic"));
    writeConfig(m_dir.filePath("orvic/platform.conf"), "system_codec=EUC-KR\n");
    const QByteArray codec = read(104);
    if (previous.isNull())
        qunsetenv("XDG_CONFIG_HOME");
    else
        qputenv("XDG_CONFIG_HOME", previous);
    QCOMPARE(codec, QByteArray("EUC-KR"));
}

// The parsed file is kept between reads: a rewritten, replaced or removed
// file must still be seen at the next read.
void tst_HostPlatformControl::configChangesAreSeen()
{
    const QString path = m_dir.filePath("platform.conf");
    writeConfig(path, "system_codec = GBK\n");
    QCOMPARE(read(104), QByteArray("GBK"));
    QCOMPARE(read(104), QByteArray("GBK"));
    writeConfig(path, "system_codec = windows-1251\n");
    QCOMPARE(read(104), QByteArray("windows-1251"));
    // Another file of the same size in its place.
    const QString other = m_dir.filePath("other.conf");
    writeConfig(other, "system_codec = windows-1250\n");
    QVERIFY(QFile::remove(path));
    QVERIFY(QFile::rename(other, path));
    QCOMPARE(read(104), QByteArray("windows-1250"));
    QVERIFY(QFile::remove(path));
    QCOMPARE(read(104), QByteArray());
}

void tst_HostPlatformControl::otherItemsAreEmpty()
{
    qputenv("ORVIC_SYSTEM_CODEC", "GBK");
    QCOMPARE(read(103), QByteArray());
    QCOMPARE(read(105), QByteArray());
}

void tst_HostPlatformControl::lengthIsRespected()
{
    qputenv("ORVIC_SYSTEM_CODEC", "windows-1251");
    QCOMPARE(read(104, 7), QByteArray("windows"));
}

void tst_HostPlatformControl::badBufferIsRefused()
{
    spplfctrl::SPPlatformControl *control = spplfctrl::SPPlatformControl::GetInstance();
    char buffer[8];
    QVERIFY(control->Vendor_Data_Read_String(104, 8, nullptr) != 0);
    QVERIFY(control->Vendor_Data_Read_String(104, 0, buffer) != 0);
    spplfctrl::SPPlatformControl::ReleaseInstance(control);
}

QTEST_GUILESS_MAIN(tst_HostPlatformControl)
#include "tst_hostplatformcontrol.moc"
