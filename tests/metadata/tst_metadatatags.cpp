// Stream metadata collection of the tags: the keys asked in order, absent
// tags, the first answer winning, flags and copy limits.
#include "collecttestutil.h"

#include <QtTest/QtTest>

using namespace orvictest;

class tst_MetaDataTags : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tagKeys_data();
    void tagKeys();
    void tagsAllAbsent();
    void tagFirstAnswerWins();
    void tagCopyLimits_data();
    void tagCopyLimits();
};

void tst_MetaDataTags::tagKeys_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<bool>("tagV2");
    QTest::addColumn<QString>("field");
    QTest::addColumn<int>("flag");

    const struct {
        const char *field;
        QList<QByteArray> fallbacks;
    } tags[] = {{"title", {"title_v1"}},
                {"artist", {"artist_v1", "TP1_V1"}},
                {"album", {"album_v1", "TAL_V1"}},
                {"date", {"date_v1"}},
                {"comment", {"comment_v1"}},
                {"genre", {"genre_v1"}}};
    for (const auto &tag : tags) {
        const QString field = QString::fromLatin1(tag.field);
        QTest::addRow("%s newer kind", tag.field) << QByteArray(tag.field) << true << field << 2;
        QTest::addRow("%s older kind", tag.field) << QByteArray(tag.field) << false << field << 1;
        for (const QByteArray &fallback : tag.fallbacks)
            QTest::addRow("%s", fallback.constData()) << fallback << true << field << 1;
    }
}

void tst_MetaDataTags::tagKeys()
{
    QFETCH(QByteArray, key);
    QFETCH(bool, tagV2);
    QFETCH(QString, field);
    QFETCH(int, flag);

    MetaRig rig;
    scriptOneAudioStream(rig);
    rig.reader.setMetaString(key, "2024");
    rig.reader.script().setDefault("isTagV2", tagV2);
    MetaDataOwner owner;
    rig.session.updateAudioMetadata(owner.meta, 0, 0);

    QVERIFY(owner.meta.audioAttribute && owner.meta.audioAttribute->id3Info);
    const Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    for (const QString &f : allTagFields) {
        QCOMPARE(tagText(tags, f), f == field ? QByteArray("2024") : QByteArray());
        QCOMPARE(tagFlag(tags, f), f == field ? flag : 0);
    }
    // The tag kind is asked only after a main-key answer.
    const bool mainKey = key == field.toLatin1();
    QCOMPARE(rig.recorder.count(QStringLiteral("isTagV2")), mainKey ? 1 : 0);
    const QStringList calls = tagCalls(rig.recorder);
    const int at = calls.indexOf(QStringLiteral("getMetaString(%1)").arg(QString::fromLatin1(key)));
    QVERIFY(at >= 0);
    if (mainKey)
        QCOMPARE(calls.value(at + 1), QStringLiteral("isTagV2()"));
    QCOMPARE(owner.meta.audioAttribute->id3Info->reserved, 0);
}

void tst_MetaDataTags::tagsAllAbsent()
{
    MetaRig rig;
    scriptOneAudioStream(rig);
    MetaDataOwner owner;
    rig.session.updateAudioMetadata(owner.meta, 0, 0);
    QCOMPARE(tagCalls(rig.recorder), allTagQueries);
    const Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    for (const QString &f : allTagFields) {
        QCOMPARE(tagText(tags, f), QByteArray());
        QCOMPARE(tagFlag(tags, f), 0);
    }
}

void tst_MetaDataTags::tagFirstAnswerWins()
{
    MetaRig rig;
    scriptOneAudioStream(rig);
    rig.reader.setMetaString("artist_v1", "Older artist");
    rig.reader.setMetaString("TP1_V1", "Oldest artist");
    rig.reader.setMetaString("album", "Main album");
    rig.reader.setMetaString("TAL_V1", "Oldest album");
    // A present but empty main-key text is an answer too.
    rig.reader.setMetaString("comment", "");
    rig.reader.setMetaString("comment_v1", "Older comment");
    rig.reader.script().push("isTagV2", QVariantList{false, true});
    MetaDataOwner owner;
    rig.session.updateAudioMetadata(owner.meta, 0, 0);

    QCOMPARE(tagCalls(rig.recorder),
             (QStringList{QStringLiteral("getMetaString(title)"), QStringLiteral("getMetaString(title_v1)"),
                          QStringLiteral("getMetaString(artist)"), QStringLiteral("getMetaString(artist_v1)"),
                          QStringLiteral("getMetaString(album)"), QStringLiteral("isTagV2()"),
                          QStringLiteral("getMetaString(date)"), QStringLiteral("getMetaString(date_v1)"),
                          QStringLiteral("getMetaString(comment)"), QStringLiteral("isTagV2()"),
                          QStringLiteral("getMetaString(genre)"), QStringLiteral("getMetaString(genre_v1)")}));
    const Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    QCOMPARE(QByteArray(tags.artist), QByteArray("Older artist"));
    QCOMPARE(tags.artistFlag, 1);
    QCOMPARE(QByteArray(tags.album), QByteArray("Main album"));
    QCOMPARE(tags.albumFlag, 1);
    QCOMPARE(QByteArray(tags.comment), QByteArray());
    QCOMPARE(tags.commentFlag, 2);
}

void tst_MetaDataTags::tagCopyLimits_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray a300(300, 'a');
    QTest::newRow("300-byte title cut to 255") << QByteArray("title") << "title" << a300 << a300.left(255);
    QTest::newRow("255-byte title kept") << QByteArray("title") << "title" << a300.left(255) << a300.left(255);
    QTest::newRow("256-byte artist_v1 cut to 255") << QByteArray("artist_v1") << "artist" << QByteArray(256, 'b')
                                                   << QByteArray(255, 'b');
    QTest::newRow("300-byte TAL_V1 cut to 255") << QByteArray("TAL_V1") << "album" << QByteArray(300, 'c')
                                                << QByteArray(255, 'c');
    QTest::newRow("300-byte genre cut to 255") << QByteArray("genre") << "genre" << QByteArray(300, 'g')
                                               << QByteArray(255, 'g');
    const QByteArray invalid = QByteArray("\xE4\xB8", 2).repeated(150);
    QTest::newRow("300 bytes of broken multibyte in comment") << QByteArray("comment") << "comment" << invalid
                                                              << invalid.left(255);
    QTest::newRow("five-digit year cut to 4") << QByteArray("date") << "date" << QByteArray("20231")
                                              << QByteArray("2023");
    QTest::newRow("long date_v1 cut to 4") << QByteArray("date_v1") << "date" << QByteArray("1999-12-31")
                                           << QByteArray("1999");
    QTest::newRow("short year kept") << QByteArray("date") << "date" << QByteArray("99") << QByteArray("99");
    QTest::newRow("embedded NUL ends the text") << QByteArray("title") << "title" << QByteArray("ab\0cd", 5)
                                                << QByteArray("ab");
}

void tst_MetaDataTags::tagCopyLimits()
{
    QFETCH(QByteArray, key);
    QFETCH(QString, field);
    QFETCH(QByteArray, value);
    QFETCH(QByteArray, expected);

    MetaRig rig;
    scriptOneAudioStream(rig);
    rig.reader.setMetaString(key, value);
    MetaDataOwner owner;
    rig.session.updateAudioMetadata(owner.meta, 0, 0);

    const Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    QCOMPARE(tagText(tags, field), expected);
    // The field's last byte stays NUL whatever the tag's length.
    const char *raw = field == QLatin1String("date") ? tags.date : nullptr;
    if (field == QLatin1String("title"))
        raw = tags.title;
    else if (field == QLatin1String("artist"))
        raw = tags.artist;
    else if (field == QLatin1String("album"))
        raw = tags.album;
    else if (field == QLatin1String("genre"))
        raw = tags.genre;
    else if (field == QLatin1String("comment"))
        raw = tags.comment;
    const int size = field == QLatin1String("date") ? int(sizeof tags.date) : 256;
    QCOMPARE(raw[size - 1], '\0');
    QCOMPARE(qstrnlen(raw, uint(size)), uint(expected.size()));
}

QTEST_GUILESS_MAIN(tst_MetaDataTags)
#include "tst_metadatatags.moc"
