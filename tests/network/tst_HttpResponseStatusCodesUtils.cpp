#include "NetworkTestSupport.h"

#include <HttpResponseStatusCodesUtils.h>

#include <QMetaEnum>

using namespace Qt::StringLiterals;
using namespace orv;
using Code = HttpResponseStatusCode;

class tst_HttpResponseStatusCodesUtils : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void registersItsCodes()
    {
        const auto codes = QMetaEnum::fromType<Code>();
        QCOMPARE(codes.scope(), "orv::ORV_QEnumsHttpResponseStatusCodesUtils");
        QCOMPARE(codes.keyCount(), 13);
        QCOMPARE(codes.value(0), 0);
        QCOMPARE(codes.value(12), 500);
        QCOMPARE(codes.keyToValue("LoginTimeout"), 440);
        QCOMPARE(codes.keyToValue("Locked"), 423);
    }

    void namesCodesInWords_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("name");
        QTest::newRow("200") << 200 << u"OK"_s;
        QTest::newRow("0") << 0 << u"Unknown"_s;
        QTest::newRow("429") << 429 << u"Too Many Requests"_s;
        QTest::newRow("no key") << 418 << QString();
    }

    void namesCodesInWords()
    {
        QFETCH(int, code);
        QTEST(httpResponseStatusCodeName(static_cast<Code>(code)), "name");
    }

    void makesErrorsOfStatuses_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("errorCode");
        QTest::addColumn<QString>("text");
        QTest::newRow("200") << 200 << u"ignored"_s << 0 << QString();
        QTest::newRow("201") << 201 << QString() << 0 << QString();
        QTest::newRow("204") << 204 << QString() << 24 << u"HTTP connection error: ."_s;
        QTest::newRow("404") << 404 << QString() << 24 << u"HTTP connection error: NotFound."_s;
        QTest::newRow("404 and text") << 404 << u"gone"_s << 24 << u"gone"_s;
        QTest::newRow("440") << 440 << QString() << 27 << u"Your session timed-out. Please log in again."_s;
        QTest::newRow("440 and text") << 440 << u"late"_s << 27 << u"late"_s;
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

    void forcesErrorsOfSuccesses()
    {
        const auto error = forcedNetworkError(Code::OK, {});
        QCOMPARE(error.errorCode(), ErrorCode::Network);
        QCOMPARE(error.errorMessage(), u"HTTP connection error: OK."_s);
        QCOMPARE(error.errorDetails().toInt(), 2200);
    }

    void makesErrorsOfTransportFailures()
    {
        QVERIFY(!networkError(QNetworkReply::NoError, u"ignored"_s).hasError());
        const auto error = networkError(QNetworkReply::TimeoutError, {});
        QCOMPARE(error.errorCode(), ErrorCode::Network);
        QCOMPARE(error.errorMessage(), u"Network connection error: TimeoutError."_s);
        QCOMPARE(error.errorDetails().toInt(), 3004);
        QCOMPARE(networkError(static_cast<QNetworkReply::NetworkError>(77), {}).errorMessage(),
                 u"Network connection error: ."_s);

        const auto unknown = networkUnknownError();
        QCOMPARE(unknown.errorCode(), ErrorCode::General);
        QCOMPARE(unknown.errorMessage(), u"Unknown error"_s);
        QCOMPARE(unknown.errorDetails().toInt(), 65535);
    }

    void readsNumbersBack_data()
    {
        QTest::addColumn<QVariant>("details");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("transport");
        QTest::newRow("empty") << QVariant() << 200 << 0;
        QTest::newRow("1999") << QVariant(1999) << 200 << 0;
        QTest::newRow("2000") << QVariant(2000) << 0 << 0;
        QTest::newRow("2999") << QVariant(2999) << 999 << 0;
        QTest::newRow("3000") << QVariant(3000) << 200 << 0;
        QTest::newRow("3004") << QVariant(3004) << 200 << 4;
        QTest::newRow("65535") << QVariant(65535) << 200 << 62535;
        QTest::newRow("negative") << QVariant(std::numeric_limits<int>::min()) << 200 << 0;
    }

    void readsNumbersBack()
    {
        QFETCH(QVariant, details);
        const auto error = Error(ErrorCode::Network).setErrorDetails(details);
        QTEST(static_cast<int>(httpResponseStatusCode(error)), "status");
        QTEST(static_cast<int>(networkError(error)), "transport");
    }

    void checksReplies_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("isGood");
        QTest::newRow("200") << 200 << true;
        QTest::newRow("201") << 201 << true;
        QTest::newRow("204") << 204 << false;
        QTest::newRow("404") << 404 << false;
        QTest::newRow("none") << 0 << false;
    }

    void checksReplies()
    {
        QFETCH(int, status);
        QFETCH(bool, isGood);
        FakeReply reply(status, QUrl(u"http://host/x"_s));
        ErrorWarningMessages messages{u"before "_s, {}};
        const auto error = checkHttpStatus(&reply, &messages);
        QCOMPARE(error.hasError(), !isGood);
        QCOMPARE(error.hasError(), checkHttpStatus(&reply, nullptr).hasError());
        if (isGood) {
            QCOMPARE(messages.errors, u"before "_s);
            return;
        }
        QCOMPARE(error.errorCode(), ErrorCode::Network);
        QVERIFY(error.errorMessage().isEmpty() && !error.errorDetails().isValid());
        QVERIFY(messages.errors.startsWith(u"before Unable to access QUrl(\"http://host/x\") - "_s));
        QVERIFY(messages.errors.contains(status == 404 ? u"NotFound"_s : QString::number(status)) ||
                status == 0);
        QVERIFY(messages.warnings.isEmpty());
    }

    void checksForNullReplies()
    {
        ErrorWarningMessages messages;
        const auto error = checkHttpStatus(nullptr, &messages);
        QCOMPARE(error.errorCode(), ErrorCode::InvalidArgument);
        QCOMPARE(error.catchTrail().size(), 2);
        checkHttpStatus(nullptr, &messages);
        QCOMPARE(messages.errors, u"Unexpected nullptrUnexpected nullptr"_s);
    }
};

QTEST_GUILESS_MAIN(tst_HttpResponseStatusCodesUtils)

#include "tst_HttpResponseStatusCodesUtils.moc"
