// The published interface of QOrvicPlayerSession as a client of the shared
// library sees it: meta object, enumerations, and the meta types the library
// registers when it is loaded.
#include "qorvicplayersession.h"

#include <QtCore/QMetaEnum>
#include <QtCore/QMetaMethod>
#include <QtCore/QMetaType>
#include <QtTest/QtTest>

namespace {

const char *const kRegisteredNames[] = {
    "QOrvicPlayerSession::MessageId",      "QOrvicPlayerSession::PlayerState",
    "QOrvicPlayerSession::PlayerMetaData", "QOrvicPlayerSession::AudioAttribute",
    "QOrvicPlayerSession::VideoAttribute", "QOrvicPlayerSession::SubtitleAttribute",
    "QVariantMap",                         "QMediaPlayer::MediaMessage",
};
const int kRegisteredCount = int(sizeof kRegisteredNames / sizeof kRegisteredNames[0]);

// Looked up while this executable's static objects are constructed: after the
// library's load-time initialiser, before main() and before any session.
struct LoadTimeTypes {
    int ids[kRegisteredCount];
    LoadTimeTypes()
    {
        for (int i = 0; i < kRegisteredCount; ++i)
            ids[i] = QMetaType::type(kRegisteredNames[i]);
    }
} loadTimeTypes;

struct Line {
    QMetaMethod::MethodType type;
    const char *signature;
    QList<QByteArray> parameterNames;
};

} // namespace

class tst_SessionMetaObject : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void className();
    void methods();
    void enumerator_data();
    void enumerator();
    void respondIdIsNotPublished();
    void nothingElsePublished();
    void registeredAtLoad_data();
    void registeredAtLoad();
    void registrationOrder();
    void typesWorkInVariantsAndQueuedCalls();
};

void tst_SessionMetaObject::className()
{
    QCOMPARE(QOrvicPlayerSession::staticMetaObject.className(), "QOrvicPlayerSession");
    QCOMPARE(QOrvicPlayerSession::staticMetaObject.superClass(), &QObject::staticMetaObject);
}

// The 16 signals and 4 slots, in this order, all public, with these
// normalised signatures and parameter names.
void tst_SessionMetaObject::methods()
{
    const QMetaMethod::MethodType S = QMetaMethod::Signal;
    const QMetaMethod::MethodType L = QMetaMethod::Slot;
    const QList<Line> expected = {
        {S, "durationChanged(qlonglong)", {"duration"}},
        {S, "positionChanged(qlonglong)", {"position"}},
        {S, "stateChanged(QOrvicPlayerSession::PlayerState)", {"state"}},
        {S, "metaDataChanged(QString,QVariant)", {"key", "value"}},
        {S, "metadataChanged(QVariantMap)", {"metadata"}},
        {S, "volumeChanged(int)", {"volume"}},
        {S, "mutedStateChanged(bool)", {"muted"}},
        {S, "audioAvailableChanged(bool)", {"audioAvailable"}},
        {S, "videoAvailableChanged(bool)", {"videoAvailable"}},
        {S, "bufferingProgressChanged(int)", {"percentFilled"}},
        {S, "playbackRateChanged(float)", {""}},
        {S, "playbackComplete()", {}},
        {S, "seekableChanged(bool)", {""}},
        {S, "error(int,QString)", {"error", "errorString"}},
        {S, "playSessionMessage(QOrvicPlayerSession::MessageId,QVariant,QVariant)", {"msgid", "param0", "param1"}},
        {S, "mediaMessageChanged(QMediaPlayer::MediaMessage,QVariant)", {"messageid", "msgInfo"}},
        {L, "setVideoOutput(QObject*)", {"output"}},
        {L, "enableMessageWait()", {}},
        {L, "waitMessageDone()", {}},
        {L, "handleMessage(QOrvicPlayerSession::MessageId,QVariant,QVariant)", {"msgid", "param0", "param1"}},
    };
    const QMetaObject &mo = QOrvicPlayerSession::staticMetaObject;
    QCOMPARE(mo.methodCount() - mo.methodOffset(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        const QMetaMethod m = mo.method(mo.methodOffset() + i);
        const Line &e = expected.at(i);
        QCOMPARE(m.methodSignature(), QByteArray(e.signature));
        QCOMPARE(m.methodType(), e.type);
        QCOMPARE(m.access(), QMetaMethod::Public);
        QCOMPARE(m.parameterNames(), e.parameterNames);
        QCOMPARE(m.returnType(), int(QMetaType::Void));
        QCOMPARE(QMetaObject::normalizedSignature(e.signature), QByteArray(e.signature));
        QCOMPARE(mo.indexOfMethod(e.signature), mo.methodOffset() + i);
    }
}

void tst_SessionMetaObject::enumerator_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QStringList>("keys");
    QTest::newRow("PlayerState") << QByteArray("PlayerState")
                                 << QStringList{"Player_Idle", "Player_Initialized", "Player_Stop", "Player_Preparing",
                                                "Player_Prepared", "Player_Play", "Player_FF", "Player_FB",
                                                "Player_SF", "Player_SB", "Player_Pause"};
    QTest::newRow("MessageId") << QByteArray("MessageId")
                               << QStringList{"Msg_SetMedia", "Msg_PlayBackRate", "Msg_Position", "Msg_Play",
                                              "Msg_Pause", "Msg_Stop", "Msg_Volume", "Msg_Muted",
                                              "Msg_SubtitleNum", "Msg_AudioStream", "Msg_ResumePlay",
                                              "Msg_SubtitleOnOff", "Msg_setResumeData", "Msg_AudioCodecList",
                                              "Msg_VideoCodecList", "Msg_ContainerList", "Msg_SetVideoOnOff",
                                              "Msg_SetAudioOnOff", "Msg_Unknown"};
}

// Published, not flags, values numbered from 0 in table order.
void tst_SessionMetaObject::enumerator()
{
    QFETCH(QByteArray, name);
    QFETCH(QStringList, keys);
    const QMetaObject &mo = QOrvicPlayerSession::staticMetaObject;
    const int index = mo.indexOfEnumerator(name.constData());
    QVERIFY(index >= 0);
    const QMetaEnum e = mo.enumerator(index);
    QCOMPARE(QByteArray(e.name()), name);
    QCOMPARE(QByteArray(e.scope()), QByteArray("QOrvicPlayerSession"));
    QVERIFY(!e.isFlag());
    QVERIFY(!e.isScoped());
    QCOMPARE(e.keyCount(), keys.size());
    for (int i = 0; i < keys.size(); ++i) {
        QCOMPARE(QString::fromLatin1(e.key(i)), keys.at(i));
        QCOMPARE(e.value(i), i);
        QCOMPARE(e.keyToValue(keys.at(i).toLatin1().constData()), i);
    }
    QCOMPARE(QMetaEnum::fromType<QOrvicPlayerSession::PlayerState>().valueToKey(QOrvicPlayerSession::Player_Pause),
             "Player_Pause");
    QCOMPARE(QMetaEnum::fromType<QOrvicPlayerSession::MessageId>().valueToKey(QOrvicPlayerSession::Msg_setResumeData),
             "Msg_setResumeData");
}

void tst_SessionMetaObject::respondIdIsNotPublished()
{
    const QMetaObject &mo = QOrvicPlayerSession::staticMetaObject;
    QCOMPARE(mo.indexOfEnumerator("RespondId"), -1);
    QCOMPARE(mo.enumeratorCount() - mo.enumeratorOffset(), 2);
    QCOMPARE(int(QOrvicPlayerSession::Rsp_BufferingProgress), 1);
    QCOMPARE(int(QOrvicPlayerSession::Rsp_Error), 8);
}

void tst_SessionMetaObject::nothingElsePublished()
{
    const QMetaObject &mo = QOrvicPlayerSession::staticMetaObject;
    QCOMPARE(mo.propertyCount(), mo.propertyOffset());
    QCOMPARE(mo.classInfoCount(), mo.classInfoOffset());
    QCOMPARE(mo.constructorCount(), 0);
}

void tst_SessionMetaObject::registeredAtLoad_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < kRegisteredCount; ++i)
        QTest::newRow(kRegisteredNames[i]) << i;
}

void tst_SessionMetaObject::registeredAtLoad()
{
    QFETCH(int, index);
    const char *name = kRegisteredNames[index];
    const int atLoad = loadTimeTypes.ids[index];
    QVERIFY2(atLoad != QMetaType::UnknownType, name);
    QCOMPARE(QMetaType::type(name), atLoad);
    if (qstrcmp(name, "QVariantMap") == 0) {
        QCOMPARE(atLoad, int(QMetaType::QVariantMap));
        return;
    }
    QCOMPARE(QMetaType::typeName(atLoad), name);
    // Construct and destroy work through the registration.
    void *value = QMetaType::create(atLoad);
    QVERIFY(value);
    QMetaType::destroy(atLoad, value);
}

// Registered in the order given, the platform's media message after them.
void tst_SessionMetaObject::registrationOrder()
{
    for (int i = 1; i < 6; ++i)
        QVERIFY2(loadTimeTypes.ids[i - 1] < loadTimeTypes.ids[i], kRegisteredNames[i]);
    QVERIFY(loadTimeTypes.ids[5] < loadTimeTypes.ids[7]);
    QCOMPARE(QMetaType::sizeOf(loadTimeTypes.ids[2]), int(sizeof(QOrvicPlayerSession::PlayerMetaData)));
    QCOMPARE(QMetaType::sizeOf(loadTimeTypes.ids[3]), int(sizeof(QOrvicPlayerSession::AudioAttribute)));
    QCOMPARE(QMetaType::sizeOf(loadTimeTypes.ids[4]), int(sizeof(QOrvicPlayerSession::VideoAttribute)));
    QCOMPARE(QMetaType::sizeOf(loadTimeTypes.ids[5]), int(sizeof(QOrvicPlayerSession::SubtitleAttribute)));
    QCOMPARE(qMetaTypeId<QOrvicPlayerSession::MessageId>(), loadTimeTypes.ids[0]);
    QCOMPARE(qMetaTypeId<QOrvicPlayerSession::PlayerState>(), loadTimeTypes.ids[1]);
    QCOMPARE(qMetaTypeId<QMediaPlayer::MediaMessage>(), loadTimeTypes.ids[7]);
}

void tst_SessionMetaObject::typesWorkInVariantsAndQueuedCalls()
{
    QOrvicPlayerSession::PlayerMetaData meta;
    meta.totalTime = 1234;
    const QVariant v = QVariant::fromValue(meta);
    QCOMPARE(v.typeName(), "QOrvicPlayerSession::PlayerMetaData");
    QCOMPARE(v.value<QOrvicPlayerSession::PlayerMetaData>().totalTime, qint64(1234));
    const QVariant m = QVariant::fromValue(QMediaPlayer::MediaMessage(2));
    QCOMPARE(m.typeName(), "QMediaPlayer::MediaMessage");
    QCOMPARE(int(m.value<QMediaPlayer::MediaMessage>()), 2);
}

QTEST_GUILESS_MAIN(tst_SessionMetaObject)
#include "tst_sessionmetaobject.moc"
