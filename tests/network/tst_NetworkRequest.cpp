#include <NetworkRequest.h>

#include <QDebug>
#include <QRegularExpression>
#include <QTest>

using orv::NetworkRequest;

class tst_NetworkRequest : public QObject
{
    Q_OBJECT

private:
    static NetworkRequest login()
    {
        NetworkRequest request(QStringLiteral("http://host/Path"), NetworkRequest::jsonContentType,
                               NetworkRequest::Method::Put);
        request.postDataContentType = "application/json";
        request.postData = "{\"user\":\"ann\",\"password\":\"abc\"}";
        return request;
    }

private Q_SLOTS:
    void takesAcceptedTypesAndNoContent()
    {
        const auto request = login();
        QCOMPARE(request.acceptedContentTypes, QByteArrayLiteral("application/json"));
        QVERIFY(NetworkRequest().acceptedContentTypes.isEmpty());
        QCOMPARE(NetworkRequest().method, NetworkRequest::Method::Get);
        QCOMPARE(NetworkRequest::defaultContentType, NetworkRequest::jsonContentType);
    }

    void comparesWhatIdentifiesIt()
    {
        const auto request = login();
        auto other = request;
        other.postData = "other";
        other.rawHeaders.insert("X", "y");
        other.streaming = true;
        other.setMaskingRegularExpressions({});
        QVERIFY(request == other);

        const QList<std::function<void(NetworkRequest&)>> differences{
            [](auto& r) { r.url = QStringLiteral("http://host/path"); },
            [](auto& r) { r.acceptedContentTypes = "text/plain"; },
            [](auto& r) { r.postDataContentType.clear(); },
            [](auto& r) { r.method = NetworkRequest::Method::Post; },
        };
        for (const auto& change : differences) {
            auto changed = request;
            change(changed);
            QVERIFY(request != changed && !(request == changed));
        }
    }

    void masksItsContentForLogs()
    {
        auto request = login();
        const auto password = QRegularExpression(QStringLiteral("(\"password\":\")[^\"]*(\")"));
        const auto user = QRegularExpression(QStringLiteral("(\"user\":\")[^\"]*(\")"));
        request.setMaskingRegularExpression(user);
        request.setMaskingRegularExpression(password);
        QCOMPARE(request.maskedData(), QByteArrayLiteral("{\"user\":\"ann\",\"password\":\"******\"}"));
        QVERIFY(request.postData.contains("abc"));

        QList<QRegularExpression> expressions{user, QRegularExpression(QStringLiteral("(")), password};
        request.setMaskingRegularExpressions(expressions);
        expressions.clear();
        const NetworkRequest copy = request;
        QCOMPARE(copy.maskedData(), QByteArrayLiteral("{\"user\":\"******\",\"password\":\"******\"}"));

        request.postData = "a\xff";
        request.setMaskingRegularExpressions({});
        QCOMPARE(request.maskedData(), QByteArrayLiteral("a\xef\xbf\xbd"));
        request.setMaskingFunction({});
        QCOMPARE(request.maskedData(), request.postData);
    }

    void printsItselfMasked()
    {
        auto request = login();
        request.setMaskingFunction([](const QByteArray&) { return QByteArrayLiteral("***"); });
        QString text;
        QDebug(&text) << request;
        QCOMPARE(text, QStringLiteral("struct orv::NetworkRequest(url=\"http://host/Path\" "
                                      "postDataContentType=\"application/json\" postData=\"***\" "
                                      "acceptedContentTypes=\"application/json\" method=Method::Put)"));
    }

    void printsMethods()
    {
        QString text;
        QDebug(&text) << NetworkRequest::Method::Head << NetworkRequest::Method::Delete;
        QCOMPARE(text, QStringLiteral("Method::HeadMethod::Delete"));
        text.clear();
        QDebug(&text) << static_cast<NetworkRequest::Method>(7) << "a"
                      << "b";
        QCOMPARE(text, QStringLiteral("a b "));
    }
};

QTEST_GUILESS_MAIN(tst_NetworkRequest)

#include "tst_NetworkRequest.moc"
