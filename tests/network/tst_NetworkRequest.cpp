#include <NetworkRequest.h>

#include <QDebug>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;
using orv::NetworkRequest;

class tst_NetworkRequest : public QObject
{
    Q_OBJECT

private:
    static NetworkRequest login()
    {
        NetworkRequest request(u"http://host/Path"_s, NetworkRequest::jsonContentType,
                               NetworkRequest::Method::Put);
        request.postDataContentType = "application/json";
        request.postData = "{\"user\":\"ann\",\"password\":\"abc\"}";
        return request;
    }

private Q_SLOTS:
    void comparesUrlTypesAndMethod()
    {
        const auto request = login();
        auto other = request;
        other.postData = "other";
        other.rawHeaders.insert("X", "y");
        other.streaming = true;
        other.setMaskingRegularExpressions({});
        QVERIFY(request == other);

        other = request;
        other.url = u"http://host/path"_s;
        QVERIFY(request != other);
        other = request;
        other.acceptedContentTypes = "text/plain";
        QVERIFY(request != other);
        other = request;
        other.postDataContentType.clear();
        QVERIFY(request != other);
        other = request;
        other.method = NetworkRequest::Method::Post;
        QVERIFY(request != other);
    }

    void masksItsContentForLogs()
    {
        auto request = login();
        const auto password = QRegularExpression(u"(\"password\":\")[^\"]*(\")"_s);
        const auto user = QRegularExpression(u"(\"user\":\")[^\"]*(\")"_s);
        request.setMaskingRegularExpression(user);
        request.setMaskingRegularExpression(password);
        QCOMPARE(request.maskedData(), "{\"user\":\"ann\",\"password\":\"******\"}"_ba);
        QVERIFY(request.postData.contains("abc"));

        QList<QRegularExpression> expressions{user, QRegularExpression(u"("_s), password};
        request.setMaskingRegularExpressions(expressions);
        expressions.clear();
        const NetworkRequest copy = request;
        QCOMPARE(copy.maskedData(), "{\"user\":\"******\",\"password\":\"******\"}"_ba);

        request.postData = "a\xff";
        request.setMaskingRegularExpressions({});
        QCOMPARE(request.maskedData(), "a\xef\xbf\xbd"_ba);
    }

    void printsItselfMasked()
    {
        auto request = login();
        request.setMaskingFunction([](const QByteArray&) { return "***"_ba; });
        QString text;
        QDebug(&text) << 1 << NetworkRequest::Method::Put << 2;
        QCOMPARE(text, u"1 Method::Put2"_s);
        text.clear();
        QDebug(&text) << request;
        QCOMPARE(text, u"struct orv::NetworkRequest(url=\"http://host/Path\" "
                       u"postDataContentType=\"application/json\" postData=\"***\" "
                       u"acceptedContentTypes=\"application/json\" method=Method::Put)"_s);
    }
};

QTEST_GUILESS_MAIN(tst_NetworkRequest)

#include "tst_NetworkRequest.moc"
