#include "../../network/src/NetworkQueuePolicies_p.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

/// When tasks may go on, at given times.
class tst_NetworkQueuePolicies : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void spacesStartsEvenly()
    {
        StartRate rate;
        rate.setRate(8, 5000ms);
        QCOMPARE(rate.delay(5000ms), 0ms);
        rate.countStart(5000ms);
        QCOMPARE(rate.delay(5000ms), 115ms); // it was idle, and 10 ms of that count
        QCOMPARE(rate.delay(5114ms), 1ms);
        rate.countStart(5120ms); // 5 ms late, which is caught up
        QCOMPARE(rate.delay(5120ms), 120ms);
        rate.setRate(0.5, 9000ms);
        rate.countStart(10000ms);
        rate.setRate(100, 10000ms); // does not wait for the old interval
        QCOMPARE(rate.delay(10000ms), 10ms);
    }

    void takesAnyRate()
    {
        using Limits = std::numeric_limits<double>;
        StartRate rate;
        for (const double off : {0.0, -1.0, Limits::quiet_NaN(), Limits::infinity()}) {
            rate.setRate(off, 100ms);
            rate.countStart(100ms);
            QCOMPARE(rate.delay(100ms), 0ms);
        }
        rate.setRate(Limits::denorm_min(), 100ms);
        rate.countStart(100ms);
        QCOMPARE(rate.delay(100ms), std::chrono::milliseconds(std::numeric_limits<int>::max()));
    }

    void takesTheDefaultPortForThatOfAHost()
    {
        QCOMPARE(hostOf(u"HTTP://Host.Example/a?b#c"_s), "http://host.example:80"_ba);
        QCOMPARE(hostOf(u"https://user:pw@host.example"_s), hostOf(u"https://HOST.example:443/x"_s));
        QVERIFY(hostOf(u"http://host.example:8080"_s) != hostOf(u"http://host.example"_s));
    }

    void sparesHostsForABoundedTime()
    {
        CoolDowns pauses;
        pauses.begin("a", 1h, 0ms); // off
        QVERIFY(pauses.isEmpty());
        pauses.setLongest(2000ms);
        pauses.begin("a", 1h, 100ms);
        pauses.begin("a", 1s, 200ms); // does not shorten it
        pauses.begin("b", 1s, 200ms);
        pauses.begin("c", -1s, 200ms);
        QVERIFY(pauses.isCooling("a", 2099ms) && !pauses.isCooling("a", 2100ms));
        QVERIFY(!pauses.isCooling("c", 200ms));
        QCOMPARE(pauses.nextEnd(), 1200ms);
        QCOMPARE(pauses.takeEnded(1200ms), QList<QByteArray>{"b"});
        QCOMPARE(pauses.nextEnd(), 2100ms);
        QCOMPARE(pauses.takeEnded(9s), QList<QByteArray>{"a"});
        QVERIFY(!pauses.nextEnd());
    }
};

QTEST_GUILESS_MAIN(tst_NetworkQueuePolicies)

#include "tst_NetworkQueuePolicies.moc"
