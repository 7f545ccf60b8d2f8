#include "../Rows.h"

#include <LoopbackProxy.h>
#include <LoopbackServer.h>

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace orv;

namespace {

using Protocol = LoopbackProxy::Protocol;
using Transport = LoopbackServer::Transport;

using Steps = QList<std::pair<QByteArray, QByteArray>>; // what a client sends, and what it gets for that

QByteArray hex(const QByteArray& text)
{
    return QByteArray::fromHex(text);
}

QByteArray largeContent()
{
    QByteArray content;
    for (quint32 i = 0; content.size() < (1 << 20); ++i)
        content += QByteArray::number(i * 2'654'435'761U, 36);
    return content;
}

} // namespace

class TestLoopbackProxy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void passesOnRequestsAndReplies_data()
    {
        const auto row = addColumns<Protocol, bool, QStringList>({"protocol", "tls", "requests"});
        const auto url = u"http://server.test:%1/"_s;
        row("HTTP", Protocol::Http, false,
            {u"GET "_s + url, u"POST "_s + url, u"GET "_s + url + u"?a=%20"_s});
        row("HTTP, TLS", Protocol::Http, true, {u"CONNECT localhost:%1"_s, u"CONNECT localhost:%1"_s});
        row("SOCKS", Protocol::Socks5, false, {u"SOCKS server.test:%1"_s, u"SOCKS server.test:%1"_s});
        row("SOCKS, TLS", Protocol::Socks5, true, {u"SOCKS localhost:%1"_s, u"SOCKS localhost:%1"_s});
    }

    // The server closes the connection after its second reply, which ends there.
    void passesOnRequestsAndReplies()
    {
        QFETCH(const Protocol, protocol);
        QFETCH(const bool, tls);
        QFETCH(QStringList, requests);
        const QByteArray content = largeContent();
        LoopbackServer server(tls ? Transport::Tls : Transport::Plain);
        QVERIFY(!server.listen().hasError());
        server.setHandler([](const LoopbackRequest& request) {
            const LoopbackReply reply(200, request.content + request.target);
            return request.method == "POST" ? LoopbackReply(reply).untilClose() : reply;
        });
        LoopbackProxy proxy(protocol);
        QVERIFY(!proxy.listen().hasError());
        QNetworkAccessManager manager;
        manager.setProxy(proxy.proxy());
        const QUrl url((tls ? u"https://localhost:%1/"_s : u"http://server.test:%1/"_s).arg(server.port()));

        for (const auto& [query, sent] :
             {std::pair(QByteArray(), QByteArray()), {{}, content}, {"?a=%20", {}}}) {
            QNetworkRequest request(QUrl::fromEncoded(url.toEncoded() + query));
            request.setHeader(QNetworkRequest::ContentTypeHeader, u"text/plain"_s);
            auto ssl = QSslConfiguration::defaultConfiguration();
            ssl.setCaCertificates({LoopbackServer::certificate()});
            request.setSslConfiguration(ssl);
            const std::unique_ptr<QNetworkReply> reply(sent.isEmpty() ? manager.get(request)
                                                                      : manager.post(request, sent));
            QTRY_VERIFY(reply->isFinished());
            QVERIFY2(reply->error() == QNetworkReply::NoError, qPrintable(reply->errorString()));
            QVERIFY(reply->readAll() == sent + "/" + query);
        }
        for (auto& request : requests)
            request = request.arg(server.port());
        QCOMPARE(proxy.requests(), requests);
    }

    void answersClients_data()
    {
        const auto row = addColumns<Protocol, Steps, QStringList>({"protocol", "steps", "requests"});
        const auto http = Protocol::Http;
        const auto socks = Protocol::Socks5;
        const auto get = "GET / HTTP/1.0\r\n\r\n"_ba;
        const auto got = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\nConnection: close\r\n\r\n/"_ba;
        row("pipelined requests, another server", http,
            {{"POST http://[::1]:PORT?q HTTP/1.1\r\nExpect: 100-continue\r\nTransfer-Encoding: "
              "chunked\r\n\r\n"
              "2\r\nab\r\n0\r\n\r\nGET http://a:PORT/2 HTTP/1.1\r\n\r\n",
              "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 5"
              "\r\n\r\n/?qabHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n/2"},
             {"GET http://a:OTHER HTTP/1.0\r\n\r\n",
              "HTTP/1.1 404 Not Found\r\nContent-Type: text/plain\r\nContent-Length: 0\r\n"
              "Connection: close\r\n\r\n"}},
            {u"POST http://[::1]:PORT?q"_s, u"GET http://a:PORT/2"_s, u"GET http://a:OTHER"_s});
        row("tunnel", http,
            {{"CONNECT a:PORT HTTP/1.1\r\n\r\n" + get, "HTTP/1.1 200 Connection established\r\n\r\n" + got}},
            {u"CONNECT a:PORT"_s});
        row("no server", http,
            {{"CONNECT a:NONE HTTP/1.1\r\n\r\n",
              "HTTP/1.1 502 Bad Gateway\r\nContent-Length: 0\r\nConnection: close\r\n\r\n"}},
            {u"CONNECT a:NONE"_s});
        row("no host", http, {{"GET / HTTP/1.1\r\n\r\n", {}}}, {});
        row("ftp", http, {{"GET ftp://a:PORT/ HTTP/1.1\r\n\r\n", {}}}, {});
        row("no port", http, {{"CONNECT a HTTP/1.1\r\n\r\n", {}}}, {});

        const std::pair hello(hex("0502 0200"), hex("0500"));
        const auto ok = hex("05000001 00000000 0000");
        row("IPv4", socks, {hello, {hex("05010001 0a000002") + "PORT", ok}, {get, got}},
            {u"SOCKS 10.0.0.2:PORT"_s});
        row("IPv6", socks,
            {hello, {hex("05010004 20010db8000000000000000000000001") + "PORT", ok}, {get, got}},
            {u"SOCKS [2001:db8::1]:PORT"_s});
        row("name", socks, {{hello.first + hex("05010003 0161") + "PORT" + get, hello.second + ok + got}},
            {u"SOCKS a:PORT"_s});
        row("refused", socks, {hello, {hex("05010003 0161") + "NONE", hex("05050001 00000000 0000")}},
            {u"SOCKS a:NONE"_s});
        row("login", socks, {{hex("050102"), hex("05ff")}}, {});
        row("bind", socks, {hello, {hex("05020003 01"), hex("05070001 00000000 0000")}}, {});
    }

    // Whether each step comes byte by byte or at once, it ends with the end of the connection.
    void answersClients()
    {
        QFETCH(const Protocol, protocol);
        QFETCH(Steps, steps);
        QFETCH(QStringList, requests);
        LoopbackServer server, other, none;
        QVERIFY(!server.listen().hasError() && !other.listen().hasError() && !none.listen().hasError());
        const std::pair<QByteArray, quint16> ports[] = {
            {"PORT", server.port()}, {"OTHER", other.port()}, {"NONE", none.port()}};
        none.close();
        server.setHandler([](const LoopbackRequest& request) {
            return LoopbackReply(200, request.target + request.content, "");
        });
        for (const auto& [name, port] : ports) {
            const bool isHttp = protocol == Protocol::Http;
            for (auto& step : steps)
                step.first.replace(name,
                                   isHttp ? QByteArray::number(port) : hex(QByteArray::number(port, 16)));
            requests.replaceInStrings(QString::fromLatin1(name), QString::number(port));
        }
        for (const qsizetype size : {1, 1000}) {
            LoopbackProxy proxy(protocol);
            QVERIFY(!proxy.listen().hasError());
            QTcpSocket client;
            client.connectToHost(QHostAddress::LocalHost, proxy.port());
            QVERIFY(client.waitForConnected());
            for (const auto& [sent, reply] : std::as_const(steps)) {
                for (qsizetype i = 0; i < sent.size(); i += size) {
                    client.write(sent.mid(i, size));
                    client.flush();
                    QCoreApplication::processEvents();
                }
                QTRY_VERIFY(client.bytesAvailable() >= reply.size());
                QCOMPARE(client.readAll(), reply);
            }
            QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
            QCOMPARE(client.readAll(), "");
            QCOMPARE(proxy.requests(), requests);
        }
    }

    void endsConnectionsWhenDeleted()
    {
        LoopbackServer server;
        auto proxy = std::make_unique<LoopbackProxy>();
        QVERIFY(!server.listen().hasError() && !proxy->listen().hasError());
        connect(&server, &LoopbackServer::requestReceived, this, [&proxy] { proxy.reset(); });
        QNetworkAccessManager manager;
        manager.setProxy(proxy->proxy());
        const std::unique_ptr<QNetworkReply> reply(manager.get(QNetworkRequest(QUrl(server.url()))));
        QTRY_VERIFY(reply->isFinished());
        QVERIFY(!proxy && reply->error() != QNetworkReply::NoError);
        QTRY_COMPARE(server.openRequestCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestLoopbackProxy)
#include "tst_LoopbackProxy.moc"
