// Logging of the session front: the exact text, the context of every line,
// the constructor banners, the property-system failure line and silencing.
#include "logcapture.h"
#include "scriptedplatform.h"
#include "sessionaccess.h"

#include <QtCore/QLoggingCategory>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>
#include <QtTest/QtTest>

#include <memory>

using namespace orvictest;

namespace {
// The library's own pass-through, restored after each test.
int (*const s_givenRegistration)(int, int) = QOrvicPlayerSessionPrivate::registrationResult;
// Registration results that the test refuses (bit i: result i is made -1).
int s_refused = 0;
int refuseSome(int index, int typeId)
{
    return (s_refused & (1 << index)) ? -1 : typeId;
}
} // namespace

class tst_SessionLogging : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void fixturePattern_data();
    void fixturePattern();
    void fixtureSameLines_data();
    void fixtureSameLines();
    void banners();
    void bannerContext();
    void everyLineCarriesItsContext();
    void propertyInitResult_data();
    void propertyInitResult();
    void registrationFailure_data();
    void registrationFailure();
    void filterRulesSilence();
    void filterRulesCanBeLifted();
    void environmentRulesSilence();

private:
    void exerciseSession();

    std::unique_ptr<ScriptedEngine> m_engine;
    std::unique_ptr<ScriptedPropertyService> m_properties;
    std::unique_ptr<LogCapture> m_log;
};

void tst_SessionLogging::init()
{
    m_engine.reset(new ScriptedEngine);
    m_properties.reset(new ScriptedPropertyService);
    m_log.reset(new LogCapture);
}

void tst_SessionLogging::cleanup()
{
    QOrvicPlayerSessionPrivate::registrationResult = s_givenRegistration;
    QLoggingCategory::setFilterRules(QString());
    m_log.reset();
    m_properties.reset();
    m_engine.reset();
}

// A session's life with a command of each kind of path: construction, a
// command carried out, a command with only bookkeeping, stop, destruction.
void tst_SessionLogging::exerciseSession()
{
    QOrvicPlayerSession session(QMediaPlayer::Flags{});
    session.manageActList(QOrvicPlayerSession::Msg_Volume, 12);
    session.manageActList(QOrvicPlayerSession::Msg_ResumePlay, QVariant());
    session.enableMessageWait();
    QOrvicPlayerSessionPrivate::get(&session)->mMessageWaitLock.unlock();
    session.waitMessageDone();
    session.stop();
}

void tst_SessionLogging::fixturePattern_data()
{
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("matches");
    const QString send = QStringLiteral("D/OPSession manageActList(#):send msg 6 ");
    QTest::newRow("line number") << send << QStringLiteral("D/OPSession manageActList(93):send msg 6 ") << true;
    QTest::newRow("no line number") << send << QStringLiteral("D/OPSession manageActList():send msg 6 ") << false;
    QTest::newRow("trailing blank missing") << send << QStringLiteral("D/OPSession manageActList(93):send msg 6") << false;
    QTest::newRow("extra trailing blank") << send << QStringLiteral("D/OPSession manageActList(93):send msg 6  ") << false;
    QTest::newRow("other id") << send << QStringLiteral("D/OPSession manageActList(93):send msg 16 ") << false;
    QTest::newRow("prefix only") << send << QStringLiteral("xD/OPSession manageActList(93):send msg 6 ") << false;
    QTest::newRow("regex characters are literal")
        << QStringLiteral("D/OPSession actMessage(#):handle mesage done  6 check list")
        << QStringLiteral("D/OPSession actMessage(1):handle mesage done  6 check list") << true;
    QTest::newRow("two blanks are two blanks")
        << QStringLiteral("D/OPSession actMessage(#):handle mesage done  6 check list")
        << QStringLiteral("D/OPSession actMessage(1):handle mesage done 6 check list") << false;
}

void tst_SessionLogging::fixturePattern()
{
    QFETCH(QString, expected);
    QFETCH(QString, line);
    QFETCH(bool, matches);
    QCOMPARE(LogCapture::pattern(expected).match(line).hasMatch(), matches);
}

void tst_SessionLogging::fixtureSameLines_data()
{
    QTest::addColumn<QStringList>("actual");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<bool>("same");
    QTest::addColumn<QString>("firstDifference");
    const QString lock = QStringLiteral("D/OPSession listLock(57):list lock!(74)");
    const QString unlock = QStringLiteral("D/OPSession listUnlock(63):list unlock!(80)");
    const QString lockPattern = QStringLiteral("D/OPSession listLock(#):list lock!(#)");
    const QString unlockPattern = QStringLiteral("D/OPSession listUnlock(#):list unlock!(#)");
    QTest::newRow("same") << QStringList{lock, unlock} << QStringList{lockPattern, unlockPattern} << true << QString();
    QTest::newRow("both empty") << QStringList() << QStringList() << true << QString();
    QTest::newRow("other order") << QStringList{unlock, lock} << QStringList{lockPattern, unlockPattern} << false
                                 << QStringLiteral("line 0: got \"%1\", expected \"%2\"").arg(unlock, lockPattern);
    QTest::newRow("line missing") << QStringList{lock} << QStringList{lockPattern, unlockPattern} << false
                                  << QStringLiteral("line 1: got \"<none>\", expected \"%1\"").arg(unlockPattern);
    QTest::newRow("line too many") << QStringList{lock, unlock} << QStringList{lockPattern} << false
                                   << QStringLiteral("line 1: got \"%1\", expected \"<none>\"").arg(unlock);
}

// The whole-sequence comparison: exact lines in exact order, and on a
// mismatch a message that starts with the first difference.
void tst_SessionLogging::fixtureSameLines()
{
    QFETCH(QStringList, actual);
    QFETCH(QStringList, expected);
    QFETCH(bool, same);
    QFETCH(QString, firstDifference);
    QByteArray why;
    QCOMPARE(LogCapture::sameLines(actual, expected, &why), same);
    if (same)
        QCOMPARE(why, QByteArray());
    else
        QCOMPARE(why.left(why.indexOf('\n')), firstDifference.toUtf8());
}

void tst_SessionLogging::banners()
{
    QOrvicPlayerSession session(QMediaPlayer::Flags{});
    const QStringList lines = m_log->lines();
    QVERIFY(lines.size() > 2);
    QVERIFY2(LogCapture::pattern(QStringLiteral("DQOrvicPlayerSession(#):VenkoPlayerlib version num:1.1.1603"))
                 .match(lines.at(0)).hasMatch(), qPrintable(lines.at(0)));
    // No "/" and no tag after the level letter; the stamp is the build time and the commit.
    const QRegularExpression info(QStringLiteral(
        "^DQOrvicPlayerSession\\(\\d+\\):VenkoPlayerlib version info:"
        "buildtimer:(\\d{4})/(\\d{2})/(\\d{2})-(\\d{2}):(\\d{2}):(\\d{2}),commitid:[0-9a-f]{40}$"));
    const QRegularExpressionMatch m = info.match(lines.at(1));
    QVERIFY2(m.hasMatch(), qPrintable(lines.at(1)));
    const QDateTime stamp(QDate(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt()),
                          QTime(m.captured(4).toInt(), m.captured(5).toInt(), m.captured(6).toInt()), Qt::UTC);
    QVERIFY2(stamp.isValid(), qPrintable(lines.at(1)));
    // A successful property-system init logs nothing: init follows at once.
    QVERIFY2(LogCapture::pattern(QStringLiteral("V/OPSession init(#) called")).match(lines.at(2)).hasMatch(),
             qPrintable(lines.at(2)));
}

void tst_SessionLogging::bannerContext()
{
    m_properties->scriptInitResult(-1);
    QOrvicPlayerSession session(QMediaPlayer::Flags{});
    const QList<LogEntry> entries = m_log->entries();
    QVERIFY(entries.size() > 3);
    for (int i = 0; i < 3; ++i) {
        const LogEntry &e = entries.at(i);
        QCOMPARE(e.type, QtDebugMsg);
        QCOMPARE(e.file, QStringLiteral("qorvicplayersession"));
        QCOMPARE(e.category, QStringLiteral("default"));
        QCOMPARE(e.function, QStringLiteral("QOrvicPlayerSession::QOrvicPlayerSession(QMediaPlayer::Flags, QObject*)"));
        QVERIFY2(e.text.contains(QStringLiteral("QOrvicPlayerSession(%1):").arg(e.line)), qPrintable(e.text));
        QCOMPARE(e.thread, QThread::currentThread());
    }
    QVERIFY(entries.at(0).line < entries.at(1).line);
    QVERIFY(entries.at(1).line < entries.at(2).line);
}

// Every line: debug severity, file name without extension, full signature,
// category "default", and the short name and line of the text match the context.
void tst_SessionLogging::everyLineCarriesItsContext()
{
    exerciseSession();
    const QList<LogEntry> entries = m_log->entries();
    QVERIFY(entries.size() > 30);
    const QRegularExpression head(QStringLiteral(
        "^(D|E|V)(/OPSession |/OPMetaSession |)(~?[A-Za-z_][A-Za-z0-9_]*)\\((\\d+)\\)(:| called$)"));
    QSet<QString> functions;
    for (const LogEntry &e : entries) {
        QCOMPARE(e.type, QtDebugMsg);
        QCOMPARE(e.category, QStringLiteral("default"));
        QVERIFY2(e.file == QLatin1String("qorvicplayersession") || e.file == QLatin1String("qorvicmetadatasession"),
                 qPrintable(e.file));
        const QRegularExpressionMatch m = head.match(e.text);
        QVERIFY2(m.hasMatch(), qPrintable(e.text));
        QCOMPARE(m.captured(4).toInt(), e.line);
        // The full signature names the function that the text names.
        const QString shortName = m.captured(3);
        QVERIFY2(e.function.contains(QLatin1String("::") + shortName + QLatin1Char('('))
                     || e.function.startsWith(shortName + QLatin1Char('('))
                     || e.function.contains(QLatin1Char(' ') + shortName + QLatin1Char('(')),
                 qPrintable(e.function + QLatin1String(" / ") + e.text));
        QVERIFY2(e.function.contains(QLatin1Char('(')) && e.function.contains(QLatin1Char(')')), qPrintable(e.function));
        // The tag matches the file: session lines from the session source.
        if (m.captured(2) == QLatin1String("/OPSession "))
            QCOMPARE(e.file, QStringLiteral("qorvicplayersession"));
        functions.insert(e.function);
    }
    // Spot checks of full signatures.
    QVERIFY(functions.contains(QStringLiteral("void QOrvicPlayerSessionPrivate::init()")));
    QVERIFY(functions.contains(QStringLiteral("void QOrvicPlayerSessionPrivate::listLock(int)")));
    QVERIFY(functions.contains(QStringLiteral("void QOrvicPlayerSession::manageActList(MessageId, QVariant)")));
    QVERIFY(functions.contains(QStringLiteral("void QOrvicPlayerSession::actMessage(MessageId, QVariant, QVariant)")));
    QVERIFY(functions.contains(QStringLiteral("void QOrvicPlayerSession::waitMessageDone()")));
    QVERIFY(functions.contains(QStringLiteral("QOrvicPlayerSessionPrivate::~QOrvicPlayerSessionPrivate()")));
}

void tst_SessionLogging::propertyInitResult_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<bool>("logged");
    QTest::newRow("0 succeeds") << 0 << false;
    QTest::newRow("-1 fails") << -1 << true;
    QTest::newRow("1 fails") << 1 << true;
}

void tst_SessionLogging::propertyInitResult()
{
    QFETCH(int, result);
    QFETCH(bool, logged);
    m_properties->scriptInitResult(result);
    QOrvicPlayerSession session(QMediaPlayer::Flags{});
    QCOMPARE(m_properties->initCount(), 1);
    const QString failure = QStringLiteral("E/OPSession QOrvicPlayerSession(#):system properties init failed!");
    QCOMPARE(m_log->count(failure), logged ? 1 : 0);
    if (logged) {
        // Right after the banners; construction goes on regardless.
        QCOMPARE(m_log->indexOf(failure), 2);
    }
    QCOMPARE(session.state(), QOrvicPlayerSession::Player_Initialized);
    QCOMPARE(m_engine->createdPlayers(), 1);
}

void tst_SessionLogging::filterRulesSilence()
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    exerciseSession();
    QCOMPARE(m_log->lines(), QStringList());
    // The library still did its work.
    QCOMPARE(m_engine->createdPlayers(), 1);
    QCOMPARE(m_engine->destroyedPlayers(), 1);
}

void tst_SessionLogging::filterRulesCanBeLifted()
{
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    {
        QOrvicPlayerSession session(QMediaPlayer::Flags{});
        QCOMPARE(m_log->lines(), QStringList());
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=true"));
        session.manageActList(QOrvicPlayerSession::Msg_ResumePlay, QVariant());
    }
    QVERIFY(m_log->contains(QStringLiteral("D/OPSession actMessage(#):play session actMessage 10")));
    QVERIFY(m_log->contains(QStringLiteral("V/OPSession ~QOrvicPlayerSessionPrivate(#) called")));
}

// Run by the test "tst_sessionlogging_envrules" with QT_LOGGING_RULES set.
void tst_SessionLogging::environmentRulesSilence()
{
    const QByteArray expected = qgetenv("ORVIC_EXPECT_LOGGING_RULES");
    if (expected.isEmpty())
        QSKIP("checked by tst_sessionlogging_envrules, which sets QT_LOGGING_RULES");
    QCOMPARE(qgetenv("QT_LOGGING_RULES"), expected);
    exerciseSession();
    QCOMPARE(m_log->lines(), QStringList());
    QCOMPARE(m_engine->createdPlayers(), 1);
}

void tst_SessionLogging::registrationFailure_data()
{
    QTest::addColumn<int>("refused");
    QTest::addColumn<int>("lines");
    QTest::newRow("all registered") << 0 << 0;
    const char *const names[] = {"MessageId", "PlayerState", "PlayerMetaData", "AudioAttribute",
                                 "VideoAttribute", "SubtitleAttribute", "QVariantMap typedef"};
    for (int i = 0; i < 7; ++i)
        QTest::addRow("%s refused", names[i]) << (1 << i) << 1;
    // One line however many fail.
    QTest::newRow("first and last refused") << (1 | 1 << 6) << 1;
    QTest::newRow("all refused") << 0x7f << 1;
}

void tst_SessionLogging::registrationFailure()
{
    QFETCH(int, refused);
    QFETCH(int, lines);
    s_refused = refused;
    QOrvicPlayerSessionPrivate::registrationResult = refuseSome;
    m_log->clear();

    qRegisterMediaPlayerMetaTypes();

    QStringList expected;
    for (int i = 0; i < lines; ++i)
        expected.append(QStringLiteral("D/OPSession qRegisterMediaPlayerMetaTypes(#):qRegisterMetaType error"));
    ORVIC_COMPARE_LINES(m_log->lines(), expected);
    if (lines) {
        const LogEntry entry = m_log->entries().constFirst();
        QCOMPARE(entry.type, QtDebugMsg);
        QCOMPARE(entry.file, QStringLiteral("qorvicplayersession"));
        QCOMPARE(entry.functionName(), QStringLiteral("qRegisterMediaPlayerMetaTypes"));
        QCOMPARE(entry.category, QStringLiteral("default"));
    }
    // Loading goes on: a session can still be made and commanded.
    QOrvicPlayerSession session(QMediaPlayer::Flags{});
    session.manageActList(QOrvicPlayerSession::Msg_Volume, 12);
    QCOMPARE(session.volume(), 12);
}

QTEST_GUILESS_MAIN(tst_SessionLogging)
#include "tst_sessionlogging.moc"
