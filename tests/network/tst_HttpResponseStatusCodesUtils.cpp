#include "NetworkTestSupport.h"

#include <HttpResponseStatusCodesUtils.h>

using namespace Qt::StringLiterals;
using namespace orv;
using Code = HttpResponseStatusCode;

class tst_HttpResponseStatusCodesUtils : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesCodesInWords()
    {
        const QMap<int, QString> names{
            {200, u"OK"_s}, {0, u"Unknown"_s}, {429, u"Too Many Requests"_s}, {418, u""_s}};
        for (auto name = names.begin(); name != names.end(); ++name)
            QCOMPARE(httpResponseStatusCodeName(static_cast<Code>(name.key())), *name);
    }

    void makesErrorsOfStatuses_data()
    {
        addColumns<int, QString, int, QString>({"code", "message", "errorCode", "text"});
        const auto row = [](int code, const char* message, int errorCode, const char* text) {
            QTest::addRow("%d %s", code, message)
                << code << QString::fromLatin1(message) << errorCode << QString::fromLatin1(text);
        };
        row(200, "ignored", 0, "");
        row(204, "", 24, "HTTP connection error: .");
        row(404, "", 24, "HTTP connection error: NotFound.");
        row(404, "gone", 24, "gone");
        row(440, "", 27, "Your session timed-out. Please log in again.");
    }

    void makesErrorsOfStatuses()
    {
        QFETCH(int, code);
        QFETCH(QString, message);
        QFETCH(int, errorCode);
        const auto error = networkError(static_cast<Code>(code), message);
        QCOMPARE(static_cast<int>(error.errorCode()), errorCode);
        QTEST(error.errorMessage(), "text");
        QCOMPARE(error.errorDetails().toInt(), errorCode ? 2000 + code : 0);
        QCOMPARE(static_cast<int>(httpResponseStatusCode(error)), errorCode ? code : 200);
    }

    void makesErrorsOfTransportFailures()
    {
        QVERIFY(!networkError(QNetworkReply::NoError, u"ignored"_s).hasError());
        const auto error = networkError(QNetworkReply::TimeoutError, {});
        QCOMPARE(error.errorCode(), ErrorCode::Network);
        QCOMPARE(error.errorMessage(), u"Network connection error: TimeoutError."_s);
        QCOMPARE(error.errorDetails().toInt(), 3004);

        const auto unknown = networkUnknownError();
        QCOMPARE(unknown.errorCode(), ErrorCode::General);
        QCOMPARE(unknown.errorMessage(), u"Unknown error"_s);
        QCOMPARE(unknown.errorDetails().toInt(), 65535);
    }

    void readsNumbersBack_data()
    {
        addColumns<QVariant, int, int>({"details", "status", "transport"});
        const auto row = [](const QVariant& details, int status, int transport) {
            QTest::newRow(qPrintable(details.toString())) << details << status << transport;
        };
        row({}, 200, 0);
        row(2000, 0, 0);
        row(2999, 999, 0);
        row(3004, 200, 4);
        row(65535, 200, 62535);
        row(std::numeric_limits<int>::min(), 200, 0);
    }

    void readsNumbersBack()
    {
        QFETCH(QVariant, details);
        const auto error = Error(ErrorCode::Network).setErrorDetails(details);
        QTEST(static_cast<int>(httpResponseStatusCode(error)), "status");
        QTEST(static_cast<int>(networkError(error)), "transport");
    }

    void checksReplies()
    {
        for (const int status : {200, 201, 204, 404, 0}) {
            FakeReply reply(status, QUrl(u"http://host/x"_s));
            ErrorWarningMessages messages{u"before "_s, {}};
            const auto error = checkHttpStatus(&reply, &messages);
            QCOMPARE(error.hasError(), status != 200 && status != 201);
            QCOMPARE(error.hasError(), checkHttpStatus(&reply, nullptr).hasError());
            if (!error.hasError()) {
                QCOMPARE(messages.errors, u"before "_s);
                continue;
            }
            QCOMPARE(error.errorCode(), ErrorCode::Network);
            QVERIFY(error.errorMessage().isEmpty() && !error.errorDetails().isValid());
            QVERIFY(messages.errors.startsWith(u"before Unable to access QUrl(\"http://host/x\") - "_s));
            QVERIFY(messages.errors.contains(status == 404 ? u"NotFound"_s : u"(%1)"_s.arg(status)) ||
                    !status);
            QVERIFY(messages.warnings.isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(tst_HttpResponseStatusCodesUtils)

#include "tst_HttpResponseStatusCodesUtils.moc"
