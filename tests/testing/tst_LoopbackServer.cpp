#include "../Rows.h"

#include <LoopbackServer.h>

#include <QJsonObject>
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
        m_server = std::make_unique<LoopbackServer>();
        QVERIFY(!m_server->listen().hasError());
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
        for (const auto whole = head + body; const char byte : whole) {
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

    void refusesMalformedRequests()
    {
        for (const auto& bytes : {"GET / HTTP/1.1\nHost: x\n\n"_ba, "GET / HTTP/1.1\r\nA: b\r\n c\r\n\r\n"_ba,
                                  "GET / HTTP/1.1\r\nA: " + QByteArray(3 << 20, 'a'),
                                  "PUT / HTTP/1.1\r\nContent-Length: -1\r\n\r\n"_ba,
                                  "PUT / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0x1\r\n"_ba}) {
            const Client client(*m_server, bytes);
            QTRY_VERIFY(client.isClosed());
            QVERIFY2(client.pieces.join().startsWith("HTTP/1.1 400 Bad Request\r\n"), bytes.constData());
        }
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
        QCOMPARE(client.pieces.join(),
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
        const auto row = addColumns<LoopbackReply, QByteArrayList>({"reply", "pieces"});
        const QByteArray all = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ntext";
        const LoopbackReply text(200, "text", "");
        row("no content", LoopbackReply(204, "text").closing(),
            {"HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n"});
        row("own fields",
            LoopbackReply(99, "text", "").withReason("No").withField("content-length", "9").closing(),
            {"HTTP/1.1 099 No\r\nConnection: close\r\ncontent-length: 9\r\n\r\ntext"});
        row("until close", LoopbackReply(text).untilClose(),
            {"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\ntext"});
        row("reset", LoopbackReply(text).resetAfter(40), {all.first(40)});
        row("split", LoopbackReply::raw(all).splitAt(20), {all.first(20), all.sliced(20)});
        row("dripped and cut", LoopbackReply(text).dripped(20, 5ms).cutAfter(41),
            {all.first(20), all.sliced(20, 20), all.sliced(40, 1)});
    }

    void writesTheReplyAsDescribed()
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
        QCOMPARE(isReset, QTest::currentDataTag() == "reset"_ba);
#endif
    }

private:
    std::unique_ptr<LoopbackServer> m_server;
};

QTEST_GUILESS_MAIN(TestLoopbackServer)
#include "tst_LoopbackServer.moc"
