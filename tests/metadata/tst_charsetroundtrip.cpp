// Real text in legacy encodings through the real detector: sentences written
// for this test, encoded at run time, must come back as they were through
// detectEncoding + decoding, through the metadata map and through
// fromCharToQstring when they are long enough for the detector to be sure.
// Every sentence, long or short, must get the codec that the detector's own
// answer, remapped, names. A summary of what came back exactly is printed.
#include "metadatatestutil.h"
#include "qorvicmetadata_p.h"

#include <QtCore/QTextCodec>
#include <QtMultimedia/qmediametadata.h>
#include <QtTest/QtTest>

#include <uchardet.h>

using namespace orvictest;

namespace {
const int kSystemCodecItem = 104;
// Below this many bytes uchardet 0.0.7 is often unsure or wrong.
const int kSureLength = 16;

// The detector's own answer for `bytes` repeated five times, asked directly.
QString rawAnswer(const QByteArray &bytes)
{
    const QByteArray input = bytes.repeated(5);
    uchardet_t detector = uchardet_new();
    uchardet_handle_data(detector, input.constData(), size_t(input.size()));
    uchardet_data_end(detector);
    const QString answer = QString::fromLatin1(uchardet_get_charset(detector));
    uchardet_delete(detector);
    return answer;
}

struct Outcome {
    QString row;
    QString charset;
    int bytes;
    QString answer;
    QString jointAnswer;
    bool viaDetect;
    bool viaMap;
    bool viaFromChar;
};
} // namespace

class tst_CharsetRoundTrip : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundTrip_data();
    void roundTrip();
    void cleanupTestCase();

private:
    QList<Outcome> m_outcomes;
};

void tst_CharsetRoundTrip::roundTrip_data()
{
    QTest::addColumn<QString>("charset");
    QTest::addColumn<QString>("text");
    // The device's remapping knowingly trades the detected codec for another.
    QTest::addColumn<bool>("remappedAway");

    const struct {
        const char *charset;
        const char *utf8;
        bool remappedAway;
    } sentences[] = {
        {"GB18030", "今天早上我们在河边散步，看见许多白色的鸟在水面上飞翔。", false},
        {"GB18030", "这张专辑收录了十二首关于城市夜晚和旅途回忆的歌曲。", false},
        {"GB18030", "春天", false},
        {"GB18030", "中", false},
        {"Big5", "圖書館的窗戶外面下著小雨，學生們安靜地讀書寫字。", false},
        {"Big5", "這首歌的旋律很溫柔，讓人想起小時候在鄉下的夏天。", false},
        {"Big5", "山上的風", false},
        {"Big5", "愛", false},
        {"Shift_JIS", "雨の日には窓のそばで温かいお茶を飲みながら本を読むのが好きです。", false},
        {"Shift_JIS", "このアルバムには夏の海と古い港町をテーマにした曲が入っています。", false},
        {"Shift_JIS", "さくら", false},
        {"Shift_JIS", "東京", false},
        {"EUC-KR", "오늘 저녁에는 친구들과 함께 시장에서 맛있는 음식을 먹었습니다.", false},
        {"EUC-KR", "이 노래는 비 오는 날 창밖을 바라보며 듣기에 좋습니다.", false},
        {"EUC-KR", "바다", false},
        {"EUC-KR", "한", false},
        {"windows-1251", "Вечером мы долго гуляли по старому парку и разговаривали о путешествиях.", false},
        {"windows-1251", "Эта песня была записана летом в маленькой студии у самого моря.", false},
        {"windows-1251", "Привет", false},
        {"windows-1251", "Да", false},
        {"KOI8-R", "Зимой в нашей деревне выпадает много снега, и дети катаются на санках.", false},
        {"KOI8-R", "Новый альбом группы вышел осенью и сразу стал очень популярным.", false},
        {"KOI8-R", "Снег", false},
        {"KOI8-R", "Да", false},
        {"windows-1250", "Včera večer jsme šli na procházku podél řeky a dívali se na hvězdy.", false},
        {"windows-1250", "Wczoraj wieczorem spacerowaliśmy nad rzeką i rozmawialiśmy o książkach.", false},
        {"windows-1250", "Šťáva", false},
        {"windows-1250", "Łódź", false},
        {"windows-1252", "Le café était déjà froid quand nous sommes arrivés à la gare après une longue journée.", false},
        {"windows-1252", "Die Brücke über den Fluss wurde im Frühling für Fußgänger geöffnet.", false},
        {"windows-1252", "Le cœur de la fête coûte 20 € par personne, selon l’organisateur.", false},
        {"windows-1252", "Noël", false},
        {"windows-1252", "café", false},
        {"ISO-8859-7", "Το καλοκαίρι πηγαίνουμε συχνά στη θάλασσα με τους φίλους μας.", false},
        // Ά is 0xB6 in ISO-8859-7 but ¶ in windows-1253, the codec the device maps ISO-8859-7 to.
        {"ISO-8859-7", "Άνοιξη στην Αθήνα είναι όμορφη εποχή για περπάτημα στους λόφους.", true},
        {"ISO-8859-7", "Ήλιος", false},
        {"ISO-8859-7", "Άρτα", false},
        {"UTF-8", "Grüße aus München — 東京 и Москва, καλημέρα!", false},
        {"UTF-8", "Ce soir, la chanson «Ночь» passe à la radio à 21 h.", false},
        {"UTF-8", "Ça va?", false},
        {"UTF-8", "é", false},
    };
    int n = 0;
    for (const auto &s : sentences)
        QTest::addRow("%02d %s", ++n, s.charset) << QString::fromLatin1(s.charset) << QString::fromUtf8(s.utf8)
                                                 << s.remappedAway;
}

void tst_CharsetRoundTrip::roundTrip()
{
    QFETCH(QString, charset);
    QFETCH(QString, text);
    QFETCH(bool, remappedAway);

    QTextCodec *codec = QTextCodec::codecForName(charset.toLatin1());
    QVERIFY(codec);
    const QByteArray bytes = codec->fromUnicode(text);
    QCOMPARE(codec->toUnicode(bytes), text);  // the sentence is expressible in its charset
    QVERIFY(bytes.size() <= 255);
    const bool sure = bytes.size() >= kSureLength;

    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "windows-1252");
    MetaRig rig;
    QOrvicMetaDataSession &session = rig.session;

    // What the library must pick: the detector's answer, remapped.
    const QString answer = rawAnswer(bytes);
    const QString expectedCodec = session.detectResultMapping(answer.isEmpty() ? QStringLiteral("unknown") : answer);

    // detectEncoding + decoding.
    const QString detected = session.detectEncoding(bytes.constData());
    QCOMPARE(detected, expectedCodec);
    const QString viaDetect = QOrvicMetaData::decodeWithCodec(detected, bytes.constData());

    // The metadata map, from tags read by the collection (older tag kind, so codecs decide).
    rig.reader.script().setDefault("getAudioStreamNum", 1);
    rig.reader.setAudioAttribute(0, engineAudio(2, 44100, 128000, "mp3", "und", 16));
    for (const char *key : {"title", "artist", "album", "genre", "comment"})
        rig.reader.setMetaString(key, bytes);
    MetaDataOwner owner;
    session.updateAudioMetadata(owner.meta, 0, 0);
    QMap<QString, QVariant> map;
    session.fillMetadataMap(map, owner.meta);
    const QString jointAnswer = rawAnswer(bytes + bytes + bytes);
    const QString jointCodec =
        session.detectResultMapping(jointAnswer.isEmpty() ? QStringLiteral("unknown") : jointAnswer);
    QCOMPARE(map.value(QMediaMetaData::Title).toString(), QOrvicMetaData::decodeWithCodec(jointCodec, bytes.constData()));
    QCOMPARE(map.value(QMediaMetaData::AlbumArtist).toString(), viaDetect);
    QCOMPARE(map.value(QMediaMetaData::AlbumTitle).toString(), viaDetect);
    bool viaMap = true;
    for (const QString &key : {QMediaMetaData::Title, QMediaMetaData::AlbumArtist, QMediaMetaData::AlbumTitle,
                               QMediaMetaData::Genre, QMediaMetaData::Comment})
        viaMap = viaMap && map.value(key).toString() == text;

    // fromCharToQstring: the configured system codec switches detection on.
    const QString viaFromChar = session.fromCharToQstring(bytes.constData());
    QCOMPARE(viaFromChar, viaDetect);
    QCOMPARE(platform.releaseCount(), platform.getInstanceCount());

    m_outcomes.append({QString::fromLatin1(QTest::currentDataTag()), charset, int(bytes.size()), answer,
                       jointAnswer, viaDetect == text, viaMap, viaFromChar == text});

    if (remappedAway) {
        QCOMPARE(expectedCodec, QStringLiteral("windows-1253"));
        QVERIFY(viaDetect != text);
        return;
    }
    if (sure) {
        QCOMPARE(viaDetect, text);
        QVERIFY2(viaMap, qPrintable(map.value(QMediaMetaData::Title).toString()));
        QCOMPARE(viaFromChar, text);
    }
}

void tst_CharsetRoundTrip::cleanupTestCase()
{
    int sure = 0, sureDetect = 0, sureMap = 0, sureFromChar = 0;
    int total = 0, allDetect = 0, allMap = 0, allFromChar = 0;
    for (const Outcome &o : qAsConst(m_outcomes)) {
        ++total;
        allDetect += o.viaDetect;
        allMap += o.viaMap;
        allFromChar += o.viaFromChar;
        if (o.bytes >= kSureLength) {
            ++sure;
            sureDetect += o.viaDetect;
            sureMap += o.viaMap;
            sureFromChar += o.viaFromChar;
        }
        if (!o.viaDetect || !o.viaMap || !o.viaFromChar)
            qInfo("not exact: %s (%d bytes): detector answered \"%s\" (\"%s\" for the map's joined text); "
                  "exact via detectEncoding %d, map %d, fromCharToQstring %d",
                  qPrintable(o.row), o.bytes, qPrintable(o.answer), qPrintable(o.jointAnswer), o.viaDetect,
                  o.viaMap, o.viaFromChar);
    }
    qInfo("exact round trips, all %d sentences: detectEncoding+decoding %d, fillMetadataMap %d, fromCharToQstring %d",
          total, allDetect, allMap, allFromChar);
    qInfo("exact round trips, %d sentences of %d bytes or more: detectEncoding+decoding %d, fillMetadataMap %d, "
          "fromCharToQstring %d", sure, kSureLength, sureDetect, sureMap, sureFromChar);
}

QTEST_GUILESS_MAIN(tst_CharsetRoundTrip)
#include "tst_charsetroundtrip.moc"
