#include "../Rows.h"

#include <Retriable.h>

#include <QTest>

#include <limits>

using namespace orv;
using std::chrono::seconds;
using Policy = Retriable::DelayPolicy;

class tst_Retriable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void allowsTenRetriesByDefault()
    {
        Retriable retriable;
        for (int i = 0; i < 10; ++i) {
            QVERIFY(retriable.canRetry());
            retriable.incrementRetriesCount();
        }
        QVERIFY(!retriable.canRetry());
        retriable.resetRetriesCount();
        QVERIFY(retriable.canRetry());
        retriable.setRetriesEnabled(false);
        QVERIFY(!retriable.canRetry());
    }

    void incrementsTheDelay_data()
    {
        constexpr int most = std::numeric_limits<int>::max();
        const auto row = addColumns<Policy, double, int, int, QList<int>>(
            {"policy", "factor", "start", "maximum", "delays"});
        row("exponential", Policy::Exponential, 2.0, 0, 300,
            QList<int>{1, 2, 4, 8, 16, 32, 64, 128, 256, 300, 300});
        row("linear", Policy::Linear, 2.0, 0, 5, QList<int>{2, 4, 5, 5});
        row("none", Policy::None, 2.0, 7, 300, QList<int>{0, 0});
        row("truncated", Policy::Exponential, 1.5, 3, 300, QList<int>{4, 6, 9, 13});
        row("too large", Policy::Exponential, 1e300, 2, most, QList<int>{most, most});
        row("no number", Policy::Linear, std::numeric_limits<double>::quiet_NaN(), 5, 9, QList<int>{0});
    }

    void incrementsTheDelay()
    {
        QFETCH(Policy, policy);
        QFETCH(double, factor);
        QFETCH(int, start);
        QFETCH(int, maximum);
        QFETCH(QList<int>, delays);
        Retriable retriable;
        retriable.setDelayPolicy(policy);
        retriable.setIncrementFactor(factor);
        retriable.setMaxDelay(maximum);
        retriable.setDelay(start);
        for (const int delay : delays) {
            retriable.incrementRetries();
            QCOMPARE(retriable.retryDelay().count(), delay);
        }
        QCOMPARE(retriable.retriesCount(), delays.size());
        retriable.resetRetries();
        QCOMPARE(retriable.retryDelay(), seconds(0));
        QCOMPARE(retriable.retriesCount(), 0);
    }

    void raisesTheDelayWithItsMaximum()
    {
        Retriable retriable;
        retriable.setDelay(1000);
        QCOMPARE(retriable.retryDelay(), seconds(300));
        retriable.setDelay(30);
        retriable.setMaxDelay(10);
        QCOMPARE(retriable.retryDelay(), seconds(30));
        retriable.setMaxDelay(seconds(60));
        QCOMPARE(retriable.retryDelay(), seconds(60));
        retriable.setMaxDelay(seconds::max());
        retriable.incrementDelay();
        QCOMPARE(retriable.retryDelay().count(), std::numeric_limits<int>::max());
    }
};

QTEST_GUILESS_MAIN(tst_Retriable)

#include "tst_Retriable.moc"
