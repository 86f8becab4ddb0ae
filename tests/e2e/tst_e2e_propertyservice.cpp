// The host property service with its real controller: psserver started,
// stopped and reported through ctl.start, ctl.stop and init.svc.psserver,
// seen alike by every process of the user.
#include "e2esupport.h"

#include <cutils/properties.h>
#include <hostruntime.h>

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <csignal>
#include <memory>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

using namespace orvice2e;

namespace {

QString propctl()
{
    return qEnvironmentVariable("ORVIC_PROPCTL");
}

// Runs the second-process tool and returns what it printed.
QByteArray inOtherProcess(const QStringList &arguments)
{
    QProcess process;
    process.start(propctl(), arguments);
    if (!process.waitForFinished(10000))
        return "<no answer>";
    return process.readAllStandardOutput().trimmed();
}

// The daemon executable the property service starts by default: psserver
// beside libcutils.so.1.
QString defaultServiceExecutable()
{
    Dl_info info{};
    if (!::dladdr(reinterpret_cast<void *>(&property_get), &info) || !info.dli_fname)
        return QString();
    return QFileInfo(QString::fromLocal8Bit(info.dli_fname)).absolutePath() + QStringLiteral("/psserver");
}

QByteArray propertyValue(const char *key)
{
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(key, value, "<default>");
    return value;
}

// Alive and not a zombie waiting to be reaped.
bool processAlive(pid_t pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return false;
    const QByteArray text = stat.readAll();
    const int close = text.lastIndexOf(')');
    return close > 0 && text.size() > close + 2 && text.at(close + 2) != 'Z';
}

// psserver processes of the runtime directory `dir` that are alive.
int daemonsFor(const QString &dir)
{
    int count = 0;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &entry : entries) {
        bool isPid = false;
        const int pid = entry.toInt(&isPid);
        if (!isPid)
            continue;
        QFile cmdline(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (!cmdline.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> arguments = cmdline.readAll().split('\0');
        if (arguments.size() >= 3 && arguments.at(0).endsWith("/psserver") && arguments.at(2) == dir.toUtf8()
            && processAlive(pid))
            ++count;
    }
    return count;
}

} // namespace

class tst_E2ePropertyService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startStopStatus();
    void secondProcessSeesSameState();
    void goneDaemonIsStopped_data();
    void goneDaemonIsStopped();
    void frozenDaemonIsNotRunningAndStops();
    void concurrentStartsFromProcessesStartOne();
    void concurrentStartsFromThreadsStartOne();
    void daemonEndsWhenItsLockFileGoes();
    void missingExecutableDoesNotStart();
    void startSaysWhyTheDaemonCannotStart();
    void startWaitsForADaemonOnItsWayOut();
    void startAfterKillAlwaysGivesARunningDaemon();
    void startReplacesADaemonKilledWhileStarting_data();
    void startReplacesADaemonKilledWhileStarting();

private:
    std::unique_ptr<RuntimeDir> m_runtime;
};

void tst_E2ePropertyService::init()
{
    QVERIFY(!propctl().isEmpty());
    m_runtime.reset(new RuntimeDir);
    QVERIFY(m_runtime->isValid());
}

void tst_E2ePropertyService::cleanup()
{
    m_runtime.reset();
    qunsetenv("ORVIC_PSSERVER");
}

void tst_E2ePropertyService::startStopStatus()
{
    QCOMPARE(serviceStatus(), QByteArray("stopped")); // never started
    QCOMPARE(startService(), 0);
    const pid_t daemon = daemonPid();
    QVERIFY(daemon > 0);
    QTRY_COMPARE_WITH_TIMEOUT(serviceStatus(), QByteArray("running"), 20000);

    QCOMPARE(startService(), 0); // running already: nothing more is started
    QCOMPARE(daemonPid(), daemon);
    QCOMPARE(daemonsFor(m_runtime->path()), 1);

    QCOMPARE(stopService(), 0);
    QCOMPARE(serviceStatus(), QByteArray("stopped")); // ctl.stop returns once it is gone
    QCOMPARE(daemonPid(), 0);
    QTRY_VERIFY(!processAlive(daemon)); // its lock went first, on the way out
    QCOMPARE(stopService(), 0); // stopping a stopped service is fine

    QVERIFY(startServiceAndWait());
    QVERIFY(daemonPid() != daemon);
    QVERIFY(m_runtime->daemonLog().contains("terminating on signal")); // the first one ended on SIGTERM
}

void tst_E2ePropertyService::secondProcessSeesSameState()
{
    QCOMPARE(inOtherProcess({"get", "init.svc.psserver"}), QByteArray("stopped"));
    QVERIFY(startServiceAndWait());
    QCOMPARE(inOtherProcess({"get", "init.svc.psserver"}), QByteArray("running"));

    QCOMPARE(property_set("persist.orvic.volume", "35"), 0);
    QCOMPARE(inOtherProcess({"get", "persist.orvic.volume"}), QByteArray("35"));
    QCOMPARE(inOtherProcess({"set", "persist.orvic.muted", "1"}), QByteArray("0"));
    QCOMPARE(propertyValue("persist.orvic.muted"), QByteArray("1"));

    // Started here, stopped there.
    const pid_t daemon = daemonPid();
    QCOMPARE(inOtherProcess({"set", "ctl.stop", "psserver"}), QByteArray("0"));
    QCOMPARE(serviceStatus(), QByteArray("stopped"));
    QTRY_VERIFY(!processAlive(daemon));
    // Started there, seen here.
    QCOMPARE(inOtherProcess({"set", "ctl.start", "psserver"}), QByteArray("0"));
    QTRY_COMPARE_WITH_TIMEOUT(serviceStatus(), QByteArray("running"), 20000);
}

void tst_E2ePropertyService::goneDaemonIsStopped_data()
{
    QTest::addColumn<int>("sig");
    QTest::newRow("killed") << int(SIGKILL);
    QTest::newRow("crashed") << int(SIGSEGV);
    QTest::newRow("exited") << int(SIGTERM);
}

void tst_E2ePropertyService::goneDaemonIsStopped()
{
    QFETCH(int, sig);
    // The daemon inherits the limit: a crash leaves no core file behind.
    const rlimit noCore{0, 0};
    QCOMPARE(setrlimit(RLIMIT_CORE, &noCore), 0);
    QVERIFY(startServiceAndWait());
    const pid_t daemon = daemonPid();
    QVERIFY(signalDaemon(sig));
    QTRY_COMPARE_WITH_TIMEOUT(serviceStatus(), QByteArray("stopped"), 5000);
    QTRY_VERIFY(!processAlive(daemon));
    // ... and it can be started again.
    QVERIFY(startServiceAndWait());
    QVERIFY(daemonPid() != daemon);
}

void tst_E2ePropertyService::frozenDaemonIsNotRunningAndStops()
{
    QVERIFY(startServiceAndWait());
    const pid_t daemon = daemonPid();
    QVERIFY(signalDaemon(SIGSTOP));
    QCOMPARE(serviceStatus(), QByteArray("unresponsive"));
    QCOMPARE(inOtherProcess({"get", "init.svc.psserver"}), QByteArray("unresponsive"));
    QCOMPARE(startService(), 0); // still there: no second daemon
    QCOMPARE(daemonPid(), daemon);

    QElapsedTimer timer;
    timer.start();
    QCOMPARE(stopService(), 0);
    QVERIFY(timer.elapsed() < 2500);
    QCOMPARE(serviceStatus(), QByteArray("stopped"));
    QTRY_VERIFY(!processAlive(daemon));
}

void tst_E2ePropertyService::concurrentStartsFromProcessesStartOne()
{
    const int starters = 6;
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int i = 0; i < starters; ++i) {
        processes.emplace_back(new QProcess);
        processes.back()->start(propctl(), {"set", "ctl.start", "psserver"});
    }
    for (auto &process : processes) {
        QVERIFY(process->waitForFinished(20000));
        QCOMPARE(process->exitCode(), 0);
        QCOMPARE(process->readAllStandardOutput().trimmed(), QByteArray("0"));
    }
    QTRY_COMPARE_WITH_TIMEOUT(serviceStatus(), QByteArray("running"), 20000);
    QCOMPARE(daemonsFor(m_runtime->path()), 1);
    const QByteArray log = m_runtime->daemonLog();
    QCOMPARE(log.count("listening on"), 1);
    QVERIFY2(!log.contains("another psserver runs"), log.constData());
}

void tst_E2ePropertyService::concurrentStartsFromThreadsStartOne()
{
    const int starters = 4;
    std::vector<int> results(starters, -99);
    std::vector<std::thread> threads;
    for (int i = 0; i < starters; ++i)
        threads.emplace_back([&results, i] { results[i] = property_set("ctl.start", "psserver"); });
    for (std::thread &t : threads)
        t.join();
    QCOMPARE(results, std::vector<int>(starters, 0));
    QTRY_COMPARE_WITH_TIMEOUT(serviceStatus(), QByteArray("running"), 20000);
    QCOMPARE(daemonsFor(m_runtime->path()), 1);
    QCOMPARE(m_runtime->daemonLog().count("listening on"), 1);
}

// The property service cannot see a daemon whose lock file was removed (with
// its runtime directory); it does not linger.
void tst_E2ePropertyService::daemonEndsWhenItsLockFileGoes()
{
    QVERIFY(startServiceAndWait());
    const pid_t daemon = daemonPid();
    QVERIFY(QFile::remove(QString::fromStdString(hostruntime::instanceLockPath(m_runtime->path().toStdString()))));
    QTRY_VERIFY_WITH_TIMEOUT(!processAlive(daemon), 5000);
    QCOMPARE(serviceStatus(), QByteArray("stopped"));
    QVERIFY(m_runtime->daemonLog().contains("is gone"));
}

void tst_E2ePropertyService::missingExecutableDoesNotStart()
{
    qputenv("ORVIC_PSSERVER", QByteArray(ORVIC_E2E_MEDIA_DIR "/no-such-psserver"));
    QCOMPARE(startService(), -1);
    QCOMPARE(serviceStatus(), QByteArray("stopped"));
    QCOMPARE(daemonsFor(m_runtime->path()), 0);
}

// The daemon's socket name is taken (here by the test itself): the daemon
// ends, and whoever asked for it learns why in one line.
void tst_E2ePropertyService::startSaysWhyTheDaemonCannotStart()
{
    const std::string dir = m_runtime->path().toStdString();
    std::string error;
    const int squatter = hostruntime::listenOnServiceSocket(dir, &error);
    QVERIFY2(squatter >= 0, error.c_str());

    QProcess process;
    process.start(propctl(), {"set", "ctl.start", "psserver"});
    QVERIFY(process.waitForFinished(20000));
    ::close(squatter);
    QCOMPARE(process.readAllStandardOutput().trimmed(), QByteArray("-1"));
    const QString expected = QStringLiteral("orvic property service: psserver did not start: "
                                            "cannot listen on %1: Address already in use (log: %2)\n")
                                     .arg(QString::fromStdString(hostruntime::socketName(dir)),
                                          QString::fromStdString(hostruntime::logPath(dir)));
    QCOMPARE(QString::fromUtf8(process.readAllStandardError()), expected);
    QCOMPARE(serviceStatus(), QByteArray("stopped"));
    QCOMPARE(daemonsFor(m_runtime->path()), 0);
}

// A killed daemon holds its instance lock until its threads and memory are
// torn down. A start in that moment must not take it for the service: it
// waits for it to go and starts a new one. The process here stands in for
// the dying daemon: it holds the lock, never answers, and ends.
void tst_E2ePropertyService::startWaitsForADaemonOnItsWayOut()
{
    const std::string lockPath = hostruntime::instanceLockPath(m_runtime->path().toStdString());
    int ready[2];
    QCOMPARE(::pipe(ready), 0);
    const pid_t dying = ::fork();
    QVERIFY(dying >= 0);
    if (dying == 0) {
        // Only async-signal-safe calls in the child of a threaded process.
        const int fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        struct flock lock{};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        const char held = (fd >= 0 && ::fcntl(fd, F_SETLK, &lock) == 0) ? 1 : 0;
        (void)!::write(ready[1], &held, 1);
        const timespec pause{0, 300 * 1000 * 1000};
        ::nanosleep(&pause, nullptr);
        ::_exit(0);
    }
    ::close(ready[1]);
    char held = 0;
    QCOMPARE(::read(ready[0], &held, 1), ssize_t(1));
    ::close(ready[0]);
    QCOMPARE(held, char(1));
    QCOMPARE(daemonPid(), dying);

    QCOMPARE(startService(), 0);
    // No waiting here: the start returned with a daemon that answers.
    QCOMPARE(serviceStatus(), QByteArray("running"));
    const pid_t daemon = daemonPid();
    QVERIFY(daemon != 0 && daemon != dying);
    int status = 0;
    QCOMPARE(::waitpid(dying, &status, 0), dying);
}

// The watchdog's path after a SIGKILL of the service, many times over: the
// start that follows the kill always ends with a daemon that answers.
void tst_E2ePropertyService::startAfterKillAlwaysGivesARunningDaemon()
{
    QVERIFY(startServiceAndWait());
    for (int round = 0; round < 10; ++round) {
        const pid_t killed = daemonPid();
        QVERIFY(killed > 0);
        QCOMPARE(::kill(killed, SIGKILL), 0);
        QCOMPARE(startService(), 0);
        QCOMPARE(serviceStatus(), QByteArray("running"));
        const pid_t next = daemonPid();
        QVERIFY2(next != 0 && next != killed, qPrintable(QStringLiteral("round %1").arg(round)));
    }
    QCOMPARE(m_runtime->daemonLog().count("listening on"), 11);
}

void tst_E2ePropertyService::startReplacesADaemonKilledWhileStarting_data()
{
    QTest::addColumn<QString>("lastWords");
    QTest::newRow("before any line") << QString();
    // Its start-up lines are in the log, and they are no reason to give up.
    QTest::newRow("after its start-up lines")
        << QStringLiteral("echo \"00:00:00.000 I/psserver[$$] listening on @somewhere\"\n");
}

// The first daemon is killed before it answers (here: a wrapper that kills
// itself the first time); the start replaces it instead of leaving the
// caller with no daemon.
void tst_E2ePropertyService::startReplacesADaemonKilledWhileStarting()
{
    QFETCH(QString, lastWords);
    const QString real = defaultServiceExecutable();
    QVERIFY2(QFileInfo(real).isExecutable(), qPrintable(real));
    const QString wrapper = m_runtime->path() + "/psserver-killed-once";
    const QString mark = m_runtime->path() + "/killed-once";
    QFile script(wrapper);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write(QStringLiteral("#!/bin/sh\n"
                                "if [ ! -e '%1' ]; then : > '%1'; %3kill -9 $$; fi\n"
                                "exec '%2' \"$@\"\n").arg(mark, real, lastWords).toUtf8());
    script.close();
    QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    qputenv("ORVIC_PSSERVER", wrapper.toUtf8());

    QCOMPARE(startService(), 0);
    QCOMPARE(serviceStatus(), QByteArray("running"));
    QVERIFY(QFile::exists(mark)); // the first one was killed
    QCOMPARE(daemonsFor(m_runtime->path()), 1);
}

QTEST_GUILESS_MAIN(tst_E2ePropertyService)
#include "tst_e2e_propertyservice.moc"
