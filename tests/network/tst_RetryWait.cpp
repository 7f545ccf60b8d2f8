#include "NetworkTestSupport.h"

#include <RetryAfter_p.h>
#include <RetryWait_p.h>

#include <QTimeZone>

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

/// How long a task waits before a retry, and what it reads from Retry-After.
class tst_RetryWait : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void waitsForTheLongerTime()
    {
        using std::chrono::hours;
        const auto most = std::chrono::seconds(2147483); // 24.8 days
        QCOMPARE((RetryWait{300s}.time()), 300s);
        QCOMPARE((RetryWait{-5s}.time()), 0s);
        QCOMPARE((RetryWait{std::chrono::seconds::max()}.time()), most);
        QCOMPARE((RetryWait{300s, 1, 0.75}.time()), 75s);
        QCOMPARE((RetryWait{300s, 0.5, 0.75}.time()), 187500ms);
        QCOMPARE((RetryWait{300s, 1, 0.75, 80s, 90s}.time()), 80s);
        QCOMPARE((RetryWait{300s, 1, 0.75, 70s, 90s}.time()), 75s);
        QCOMPARE((RetryWait{1s, 0, 0, hours(8766), 90s}.time()), 90s);
        QCOMPARE((RetryWait{1s, 0, 0, hours(8766), std::chrono::seconds::max()}.time()), most);
        QCOMPARE((RetryWait{1s, 0, 0, 80s, -90s}.time()), 1s);
    }

    void readsRetryAfter_data()
    {
        const auto row = addColumns<QByteArray, QByteArray, qint64>({"value", "date", "seconds"});
        const QByteArray none = "none";
        row("seconds", "120", none, 120);
        row("no time at all", " 0 ", none, 0);
        row("more than fits", "99999999999999999999", none, 2147483647);
        row("date", "Sun, 06 Nov 1994 08:49:37 GMT", none, 37);
        row("obsolete date", "Sunday, 06-Nov-94 08:49:37 GMT", none, 37);
        row("date of asctime()", "Sun Nov  6 08:49:37 1994", none, 37);
        row("a year away", "Mon, 06 Nov 1995 08:49:00 GMT", none, 31536000);
        row("next century", "Friday, 06-Nov-43 08:49:00 GMT", none, 1546300800);
        row("fifty-one years away counts as past", "Monday, 06-Nov-45 08:49:00 GMT", none, -1);
        row("by the clock of the server", "Sun, 06 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 08:49:30 GMT",
            7);
        row("server without a clock", "Sun, 06 Nov 1994 08:49:37 GMT", "today", 37);
        row("past", "Sun, 06 Nov 1994 08:48:59 GMT", none, -1);
        for (const auto* garbage : {"", "-1", "+1", "1.5", "1 s", "1, 2", "soon", "GMT", "Sun, 06 Nov",
                                    "Sun, 31 Feb 1995 08:49:37 GMT", "Sun, 06 Nov 1994 25:49:37 GMT",
                                    "Sun, 06 Nov 1994 08:49:37 CET"})
            row(garbage, garbage, none, -1);
    }
    void readsRetryAfter()
    {
        QFETCH(QByteArray, value);
        QFETCH(QByteArray, date);
        QFETCH(qint64, seconds);
        const QDateTime now(QDate(1994, 11, 6), QTime(8, 49), QTimeZone::utc());
        FakeReply reply(503);
        reply.setRawHeader("Retry-After", value);
        if (date != "none")
            reply.setRawHeader("Date", date);
        const auto expected = std::chrono::seconds(seconds);
        QCOMPARE(retryAfter(&reply, now).value_or(-1s), expected);
        QVERIFY(!retryAfter(nullptr, now));
    }
};

QTEST_GUILESS_MAIN(tst_RetryWait)

#include "tst_RetryWait.moc"
