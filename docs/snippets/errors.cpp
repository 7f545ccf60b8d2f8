#include "Snippets.h"

#include <SslIgnorantNetworkAccessManager.h>

using namespace Qt::StringLiterals;

namespace {

using orv::ErrorCode;
using orv::LoopbackReply;

struct Outcome
{
    LoopbackReply reply;
    ErrorCode code;
    int number;
    QString message; // the end of the message
};

} // namespace

Q_DECLARE_METATYPE(Outcome)

void Snippets::errorNumbers_data()
{
    QTest::addColumn<Outcome>("outcome");
    const auto status = [](int number, int expected, const char* text, ErrorCode code = ErrorCode::Network) {
        QTest::addRow("%d", number) << Outcome{LoopbackReply(number), code, expected,
                                               QString::fromLatin1(text)};
    };
    status(204, 2204, "Unknown error");
    status(304, 2304, "Unknown error");
    status(400, 2400, "server replied: Bad Request");
    status(401, 2401, "Host requires authentication");
    status(404, 2404, "");
    status(408, 2408, "");
    status(429, 2429, "");
    status(440, 2440, "", ErrorCode::SessionTimedOut);
    status(500, 2500, "");
    status(502, 2502, "");
    status(503, 2503, "");
    const auto fault = [](const char* name, const LoopbackReply& reply, int expected, const char* text) {
        QTest::newRow(name) << Outcome{reply, ErrorCode::Network, expected, QString::fromLatin1(text)};
    };
    fault("silence", LoopbackReply::silence(), 2408, "Network timeout");
    fault("cut content", LoopbackReply(200, QByteArray(1000, 'x')).cutAfter(200), 3002, "Connection closed");
    fault("cut error content", LoopbackReply(500, QByteArray(1000, 'x')).cutAfter(200), 2500,
          "Connection closed");
    fault("no reply", LoopbackReply::raw({}), 2000, "Connection closed");
    fault("garbage", LoopbackReply::raw("garbage\r\n\r\n"), 2000, "Connection closed");
}

void Snippets::errorNumbers()
{
    QFETCH(Outcome, outcome);
    m_server->addReply(u"/x"_s, outcome.reply);
    orv::NetworkTask task(m_url + u"/x"_s);
    task.setRetriesEnabled(false);
    if (outcome.message == "Network timeout"_L1)
        task.setTimeout(100);
    task.exec();
    QTRY_VERIFY(task.isFinished());
    QCOMPARE(task.error().errorCode(), outcome.code);
    QCOMPARE(task.error().errorDetails().toInt(), outcome.number);
    QVERIFY2(task.error().errorMessage().endsWith(outcome.message), qPrintable(task.error().errorMessage()));
}

void Snippets::errorBranches()
{
    orv::LoopbackServer gone;
    QVERIFY(!gone.listen().hasError());
    const auto url = gone.url(u"/x"_s);
    gone.close();
    orv::NetworkTask whole(url);
    auto* task = &whole;
    task->exec();
    QTRY_VERIFY(task->isFinished());
    QString shown;
    const auto show = [&shown](const QString& text) { shown = text; };

    //! [branches]
    switch (task->error().errorCode()) {
    case orv::ErrorCode::None:
    case orv::ErrorCode::Canceled:
        break; // nothing to report
    case orv::ErrorCode::SessionTimedOut:
    case orv::ErrorCode::AuthenticationFailed:
        show(tr("Please log in again."));
        break;
    case orv::ErrorCode::Network:
        if (task->networkResponseError() == QNetworkReply::ConnectionRefusedError)
            show(tr("The server is not running."));
        else
            show(task->error().errorMessage());
        break;
    default:
        show(task->error().errorMessage());
        break;
    }
    //! [branches]

    QCOMPARE(shown, u"The server is not running."_s);

    //! [numbers]
    const auto status = orv::httpResponseStatusCode(task->error()); // OK if the error has none
    const auto transport = task->networkResponseError();
    const int number = task->error().errorDetails().toInt();
    //! [numbers]

    QCOMPARE(static_cast<int>(status), 0);
    QCOMPARE(transport, QNetworkReply::ConnectionRefusedError);
    QCOMPARE(number, 2000);

    for (const auto& bad : {QString(), u"example.org/no-scheme"_s, u"ftp://127.0.0.1/"_s, u"data:,x"_s}) {
        orv::NetworkTask other(bad);
        other.exec();
        QTRY_VERIFY(other.isFinished());
        QCOMPARE(other.error().errorDetails().toInt(), 2000);
    }

    m_server->addReply(u"/silence"_s, LoopbackReply::silence());
    auto manager = std::make_unique<orv::SslIgnorantNetworkAccessManager>();
    orv::NetworkTask lost(m_url + u"/silence"_s);
    lost.setNetworkAccessManager(manager.get());
    lost.setRetriesEnabled(false);
    lost.exec();
    QTRY_COMPARE(m_server->requests().size(), 1);
    manager.reset();
    QTRY_VERIFY(lost.isFinished());
    QCOMPARE(lost.error().errorDetails().toInt(), 3099);
    QCOMPARE(lost.error().errorMessage(), u"Network error"_s);
    QCOMPARE(lost.networkResponseError(), QNetworkReply::UnknownNetworkError);
}
