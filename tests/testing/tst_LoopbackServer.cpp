#include "../Rows.h"

#include <LoopbackServer.h>

#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTcpSocket>
#include <QTest>

#ifdef Q_OS_UNIX
#include <sys/socket.h>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;
using namespace orv;
using namespace std::chrono_literals;

namespace {

QByteArray get(const QByteArray& target, const QByteArray& method = "GET")
{
    return method + ' ' + target + " HTTP/1.1\r\nHost: x\r\n\r\n";
}

/// A client that knows nothing of HTTP and records what it receives, read by read.
class Client : public QTcpSocket
{
public:
    explicit Client(const LoopbackServer& server, const QByteArray& bytes = {})
    {
        connect(this, &QTcpSocket::readyRead, this, [this] { pieces.append(readAll()); });
        connectToHost(QHostAddress::LocalHost, server.port());
        write(bytes);
    }

    QByteArray received() const { return pieces.join(); }
    bool isClosed() const { return state() == UnconnectedState; }

    QByteArrayList pieces;
};

} // namespace

class TestLoopbackServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
    }

    void carriesLargeContentsBothWays()
    {
        const auto content = "0123456789abcdefg"_ba.repeated(500'000);
        LoopbackServer server(LoopbackServer::Transport::Tls);
        server.setHandler([](const LoopbackRequest& request) {
            return LoopbackReply(200, request.content).chunked(100'000);
        });
        QVERIFY(!server.listen().hasError());
        QNetworkAccessManager manager;
        QNetworkRequest request{QUrl(server.url())};
        auto configuration = QSslConfiguration::defaultConfiguration();
        configuration.addCaCertificate(LoopbackServer::certificate());
        request.setSslConfiguration(configuration);
        request.setHeader(QNetworkRequest::ContentTypeHeader, "text/plain"_ba);
        const std::unique_ptr<QNetworkReply> reply(manager.post(request, content));
        // Not QTRY_COMPARE, which would let the client run only every 10 ms.
        QVERIFY(QSignalSpy(reply.get(), &QNetworkReply::finished).wait());
        QVERIFY(reply->readAll() == content);
    }

    void mayBeDeletedInSlotsAndHandlers_data()
    {
        addRows("place", {"connectionOpened", "requestReceived", "handler"});
    }

    void mayBeDeletedInSlotsAndHandlers()
    {
        QFETCH(QString, place);
        const auto destroyIn = [this, place](const char* here) {
            if (place != QLatin1String(here))
                return;
            m_server.reset();
            // As a nested event loop would do.
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        };
        auto* server = m_server.get();
        connect(server, &LoopbackServer::connectionOpened, this, [=] { destroyIn("connectionOpened"); });
        connect(server, &LoopbackServer::requestReceived, this, [=] { destroyIn("requestReceived"); });
        server->setHandler([destroyIn, place](const LoopbackRequest&) {
            destroyIn("handler");
            return LoopbackReply(200 + int(place.size())); // the handler's captures must still exist
        });
        const Client client(*m_server, get("/"));
        QTRY_VERIFY(!m_server && client.isClosed());
    }

    void recordsRequestsExactlyAsReceived_data()
    {
        const auto row = addColumns<QByteArray, QByteArray, QByteArray>({"fields", "body", "content"});
        row("none", "", "", "");
        row("length", "content-LENGTH: 5\r\n", "a\r\n\r\n", "a\r\n\r\n");
        row("chunked", "Transfer-Encoding: chunked\r\n",
            "3;x=y\r\nabc\r\nA\r\n0123\r\n\r\n89\r\n0\r\nTrailer: t\r\n\r\n", "abc0123\r\n\r\n89");
    }

    // Byte by byte, and in one piece together with a second request: to the parser, that must make no
    // difference.
    void recordsRequestsExactlyAsReceived()
    {
        QFETCH(QByteArray, fields);
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, content);
        const QByteArray head =
            "POST /a%20b/c?q=%20 HTTP/1.1\r\nX-B:  two words \r\nx-a:1\r\nX-B: 3\r\n" + fields + "\r\n";
        Client slow(*m_server);
        QVERIFY(slow.waitForConnected());
        const QByteArray request = head + body;
        for (const char byte : request) {
            slow.write(&byte, 1);
            slow.flush();
            QCoreApplication::processEvents();
        }
        QTRY_COMPARE(m_server->requests().size(), 1);
        const Client fast(*m_server, head + body + get("/next"));
        QTRY_COMPARE(m_server->requests().size(), 3);

        for (int i = 0; i < 2; ++i) {
            const LoopbackRequest recorded = m_server->requests(u"/a b/c"_s).value(i);
            QCOMPARE(recorded.head, head);
            QCOMPARE(recorded.target, "/a%20b/c?q=%20");
            QCOMPARE(recorded.fields.value(0), std::pair("X-B"_ba, "two words"_ba));
            QCOMPARE(recorded.field("X-A"), "1");
            QCOMPARE(recorded.content, content);
        }
        QCOMPARE(m_server->requests().last().path, u"/next"_s);
    }

    void refusesMalformedRequests_data()
    {
        const auto row = addColumns<QByteArray>({"bytes"});
        row("bare line feed", "GET / HTTP/1.1\nHost: x\n\n");
        row("folded field", "GET / HTTP/1.1\r\nA: b\r\n c\r\n\r\n");
        row("long head", "GET / HTTP/1.1\r\nA: " + QByteArray(3 << 20, 'a'));
        const auto length = "PUT / HTTP/1.1\r\nContent-Length: "_ba;
        row("signed length", length + "-1\r\n\r\n");
        row("two lengths", length + "1\r\nContent-Length: 2\r\n\r\n");
        row("length and chunked", length + "1\r\nTransfer-Encoding: chunked\r\n\r\n");
        const auto chunked = "PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n"_ba;
        row("chunk end", chunked + "1\r\nabc\r\n");
        row("chunk size", chunked + "0x1\r\n");
    }

    void refusesMalformedRequests()
    {
        QFETCH(QByteArray, bytes);
        Client client(*m_server, bytes);
        QTRY_VERIFY(client.isClosed());
        QVERIFY(client.received().startsWith("HTTP/1.1 400 Bad Request\r\n"));
        QVERIFY(m_server->requests().isEmpty());
    }

    void answersPipelinedRequestsInOrderFromEachScript()
    {
        m_server->addReply(u"/a"_s, LoopbackReply(200, "a1").delayed(20ms));
        m_server->addReply(u"/a"_s, LoopbackReply(200, "a2").chunked(1));
        m_server->addReply(u"/b"_s, LoopbackReply(201, "b1"));
        m_server->setHandler([](const LoopbackRequest& request) {
            return LoopbackReply::json({{u"m"_s, QString::fromLatin1(request.method)}}).closing();
        });
        const QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n";
        const QByteArray a2 = head + "Transfer-Encoding: chunked\r\n\r\n1\r\na\r\n1\r\n2\r\n0\r\n\r\n";
        Client client(*m_server,
                      get("/a") + get("/b") + get("/a?x") + get("/a", "HEAD") + get("/c") + get("/b"));
        QTRY_VERIFY(client.isClosed());
        QCOMPARE(client.received(),
                 head + "Content-Length: 2\r\n\r\na1" +
                     "HTTP/1.1 201 Created\r\nContent-Type: text/plain\r\nContent-Length: 2\r\n\r\nb1" + a2 +
                     head + "Transfer-Encoding: chunked\r\n\r\n" +
                     "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 11\r\n"
                     "Connection: close\r\n\r\n{\"m\":\"GET\"}");
        QCOMPARE(m_server->requests().size(), 5);
        QCOMPARE(m_server->connectionCount(), 1);
    }

    void writesTheReplyAsDescribed_data()
    {
        const auto row = addColumns<LoopbackReply, QByteArray>({"reply", "expected"});
        const LoopbackReply text(200, "text", "");
        const auto odd = LoopbackReply(99, "text").withReason("No").withField("content-length", "9");
        row("HEAD", text, "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nend");
        row("GET 204", LoopbackReply(204, "text"), "HTTP/1.1 204 No Content\r\n\r\nend");
        row("GET 304", LoopbackReply(304, "text").withField("Content-Length", "4"),
            "HTTP/1.1 304 Not Modified\r\nContent-Length: 4\r\n\r\nend");
        row("GET own fields, odd status", LoopbackReply(odd).withField("Content-Type", ""),
            "HTTP/1.1 099 No\r\ncontent-length: 9\r\nContent-Type: \r\n\r\ntextend");
        row("GET until close", LoopbackReply(text).untilClose(),
            "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\ntext");
    }

    void writesTheReplyAsDescribed()
    {
        QFETCH(LoopbackReply, reply);
        const auto method = QByteArray(QTest::currentDataTag()).first(4).trimmed();
        m_server->addReply(u"/"_s, reply);
        m_server->addReply(u"/"_s, LoopbackReply::raw("end"));
        const Client client(*m_server, get("/", method) + get("/"));
        QTRY_VERIFY(client.isClosed());
        QTEST(client.received(), "expected");
    }

    void damagesTheReplyAtTheGivenByte_data()
    {
        const auto row = addColumns<LoopbackReply, QByteArrayList>({"reply", "pieces"});
        const QByteArray all = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ntext";
        const LoopbackReply text(200, "text", "");
        row("reset in the content", LoopbackReply(text).resetAfter(40), {all.first(40)});
        row("split", LoopbackReply::raw(all).splitAt(20), {all.first(20), all.sliced(20)});
        row("dripped and cut", LoopbackReply(text).dripped(20, 5ms).cutAfter(41),
            {all.first(20), all.sliced(20, 20), all.sliced(40, 1)});
    }

    void damagesTheReplyAtTheGivenByte()
    {
        QFETCH(LoopbackReply, reply);
        m_server->addReply(u"/"_s, reply);
        Client client(*m_server, get("/"));
        QVERIFY(client.waitForConnected());
#ifdef Q_OS_UNIX
        const int handle = ::dup(static_cast<int>(client.socketDescriptor())); // outlives Qt's
#endif
        QTRY_VERIFY(client.isClosed());
        QTEST(client.pieces, "pieces");
#ifdef Q_OS_UNIX
        // QTcpSocket reports FIN and RST in the same way, but after RST nothing can be sent.
        const bool isReset = ::send(handle, "x", 1, MSG_NOSIGNAL) < 0;
        ::close(handle);
        QCOMPARE(isReset, QByteArray(QTest::currentDataTag()).startsWith("reset"));
#endif
    }

private:
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(TestLoopbackServer)
#include "tst_LoopbackServer.moc"
