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
        rate.countStart(5000ms);
        QCOMPARE(rate.delay(5000ms), 0ms); // off
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

    // At a thousand wake-ups a second, each up to 3 ms late.
    void neitherExceedsNorLosesTheRate()
    {
        StartRate rate;
        rate.setRate(90, 0ms);
        int starts = 0;
        for (auto now = 0ms; now < 10000ms; now += 1ms + (now / 7) % 3) {
            if (rate.delay(now) == 0ms) {
                rate.countStart(now);
                ++starts;
            }
        }
        QVERIFY2(starts >= 899 && starts <= 902, qPrintable(QString::number(starts)));
    }

    void takesAnyRate()
    {
        constexpr double infinity = std::numeric_limits<double>::infinity();
        for (const double off : {0.0, -1.0, -infinity, std::numeric_limits<double>::quiet_NaN(), infinity}) {
            StartRate rate;
            rate.setRate(off, 100ms);
            rate.countStart(100ms);
            QCOMPARE(rate.delay(100ms), 0ms);
        }
        StartRate rate;
        rate.setRate(std::numeric_limits<double>::denorm_min(), 0ms);
        rate.countStart(0ms);
        QCOMPARE(rate.delay(0ms), std::chrono::milliseconds(std::numeric_limits<int>::max()));
    }

    void countsTheTasksOfEachHost()
    {
        QCOMPARE(hostOf(u"HTTP://Host.Example/a?b#c"_s), "http://host.example:80"_ba);
        QCOMPARE(hostOf(u"https://user:pw@host.example"_s), hostOf(u"https://HOST.example:443/x"_s));
        QVERIFY(hostOf(u"http://host.example:8080"_s) != hostOf(u"http://host.example"_s));
        HostLimit limit;
        limit.add("a");
        limit.add("a");
        QVERIFY(!limit.isFull("a")); // off
        limit.setLimit(2);
        QVERIFY(limit.isFull("a") && !limit.isFull("b"));
        limit.remove("a");
        limit.remove("b");
        QVERIFY(!limit.isFull("a") && !limit.isFull("b"));
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
