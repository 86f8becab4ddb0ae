// The state-transition checker used by the adaptor tests must itself reject
// what the state machine forbids, or it would prove nothing.
#include "adaptorharness.h"

#include <QtTest/QtTest>

using namespace orvictest;
using S = QOrvicPlayerSession;

class tst_StateTransitionChecker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void allowed_data();
    void allowed();
    void recordsViolationsInOrder();
    void watchesTheSession();
};

void tst_StateTransitionChecker::allowed_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<bool>("ok");

    for (int from = S::Player_Idle; from <= S::Player_Pause; ++from) {
        QTest::addRow("%d->Initialized", from) << from << int(S::Player_Initialized) << true;
        QTest::addRow("%d->Preparing", from) << from << int(S::Player_Preparing) << true;
        QTest::addRow("%d->Play", from) << from << int(S::Player_Play) << true;
        QTest::addRow("%d->FF", from) << from << int(S::Player_FF) << true;
        QTest::addRow("%d->FB", from) << from << int(S::Player_FB) << true;
        QTest::addRow("%d->SF", from) << from << int(S::Player_SF) << true;
        QTest::addRow("%d->Pause", from) << from << int(S::Player_Pause) << true;
        QTest::addRow("%d->Idle", from) << from << int(S::Player_Idle) << (from == S::Player_Idle);
        QTest::addRow("%d->SB", from) << from << int(S::Player_SB) << (from == S::Player_SB);
        const bool prepared = from == S::Player_Preparing || from == S::Player_Prepared;  // or re-announced
        QTest::addRow("%d->Prepared", from) << from << int(S::Player_Prepared) << prepared;
        // Stop is announced by a stop (from Preparing) or re-announced after a
        // silent failure; a playing session has no silent way to Stop.
        QTest::addRow("%d->Stop", from) << from << int(S::Player_Stop) << (from != S::Player_Play);
    }
}

void tst_StateTransitionChecker::allowed()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(bool, ok);
    QCOMPARE(StateTransitionChecker::allowed(S::PlayerState(from), S::PlayerState(to)), ok);
}

void tst_StateTransitionChecker::recordsViolationsInOrder()
{
    AdaptorHarness h;
    h.start();
    StateTransitionChecker checker(h.session.get());   // starts at Initialized
    checker.observe(S::Player_Prepared);                 // 1->4: not prepared by an open
    checker.observe(S::Player_Play);                     // 4->5
    checker.observe(S::Player_Stop);                     // 5->2: no stop in between
    checker.observe(S::Player_SB);                       // 2->9
    QCOMPARE(checker.transitions(), QStringList({"1->4", "4->5", "5->2", "2->9"}));
    QCOMPARE(checker.violations(), QStringList({"1->4", "5->2", "2->9"}));
}

void tst_StateTransitionChecker::watchesTheSession()
{
    AdaptorHarness h;
    h.start();
    StateTransitionChecker checker(h.session.get());
    h.d->setState(S::Player_Prepared);   // announced without an open
    h.d->setState(S::Player_Preparing);
    h.d->setState(S::Player_Prepared);
    QCOMPARE(checker.transitions(), QStringList({"1->4", "4->3", "3->4"}));
    QCOMPARE(checker.violations(), QStringList({"1->4"}));
}

QTEST_GUILESS_MAIN(tst_StateTransitionChecker)
#include "tst_statetransitionchecker.moc"
