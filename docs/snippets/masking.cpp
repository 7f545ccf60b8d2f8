#include "Snippets.h"

#include <QLoggingCategory>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

QStringList& lines()
{
    static QStringList lines;
    return lines;
}

void collect(QtMsgType /*type*/, const QMessageLogContext& /*context*/, const QString& text)
{
    lines().append(text);
}

orv::NetworkRequest loginRecord(const QString& url)
{
    using orv::NetworkRequest;
    //! [NetworkRequest.h]
    NetworkRequest request(url, NetworkRequest::jsonContentType, NetworkRequest::Method::Post);
    request.postDataContentType = NetworkRequest::jsonContentType;
    request.postData = R"({"user":"ann","password":"secret"})";
    request.setMaskingRegularExpression(QRegularExpression(uR"(("password":")[^"]*("))"_s));
    //! [NetworkRequest.h]
    return request;
}

} // namespace

void Snippets::secretsAreMasked()
{
    m_server->addReply(u"/login"_s, orv::LoopbackReply(200));
    const auto url = m_url + u"/login"_s;
    orv::NetworkRequest request(url, orv::NetworkRequest::jsonContentType, orv::NetworkRequest::Method::Post);

    //! [pattern]
    request.postDataContentType = orv::NetworkRequest::jsonContentType;
    request.postData = R"({"user":"ann","password":"secret"})";
    request.setMaskingRegularExpression(QRegularExpression(uR"(("password":")[^"]*("))"_s));
    //! [pattern]
    QCOMPARE(request.maskedData(), R"({"user":"ann","password":"******"})");

    const auto previous = qInstallMessageHandler(collect);
    //! [rules]
    QLoggingCategory::setFilterRules(u"orv.network.info=true"_s);
    //! [rules]
    orv::NetworkTask task(request);
    task.exec();
    const bool isGood = succeeds(&task);
    QLoggingCategory::setFilterRules({});
    qInstallMessageHandler(previous);
    QVERIFY(isGood);
    QVERIFY(lines().join(u'\n').contains(u"******"_s));
    QVERIFY(!lines().join(u'\n').contains(u"secret"_s));
    QCOMPARE(m_server->requests().constFirst().content, request.postData);

    //! [nothing]
    request.setMaskingFunction([](const QByteArray& content) {
        return QByteArray("(" + QByteArray::number(content.size()) + " bytes)");
    });
    //! [nothing]
    QCOMPARE(request.maskedData(), "(34 bytes)");

    QVERIFY(!loginRecord(url).maskedData().contains("secret"));
}
