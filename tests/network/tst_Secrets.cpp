#include "NetworkTestSupport.h"

#include <FileDownloadTask.h>
#include <NetworkQueue.h>

#include <QHttpMultiPart>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>

using namespace orv;

// clazy:excludeall=non-pod-global-static
namespace {

const QByteArray TOKEN("t0ken-of-the-user");
const QByteArray OLD_TOKEN("t0ken-that-expired");
const QByteArray BODY_SECRET("b0dy-secret");
const QByteArray BODY = R"({"password":")" + BODY_SECRET + R"("})" + QByteArray(2500, 'x');
const QByteArray PART_SECRET("p4rt-secret");
const QByteArray FIELD_SECRET("f1eld-secret");
const QByteArray REPLY_SECRET("r3ply-secret");
const QByteArray URL_SECRET("url-s3cret");

QString withPassword(QString url)
{
    const auto user = QStringLiteral("http://user:%1@").arg(QLatin1String(URL_SECRET));
    return url.replace(QLatin1String("http://"), user);
}

// Fails once, then logs in.
class Login : public TestAuthenticator
{
public:
    Login()
    {
        currentToken = QString::fromLatin1(OLD_TOKEN);
        duringLogin = [this] {
            QTimer::singleShot(0, this, [this] {
                if (logins == 1)
                    fail(orv::Error(ErrorCode::AuthenticationFailed, "try again"), Error::TemporaryFailure);
                else
                    succeed(TOKEN.constData());
            });
        };
    }
};

} // namespace

/// Tasks that end in every way, with every log line switched on and examined.
class tst_Secrets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QSettings().setValue(QStringLiteral("Network/DumpData"), true); // read once, with the first reply
        QSettings().setValue(QStringLiteral("Network/MaxDumpSize"), 12);
    }

    void neverReachTheLog()
    {
        LoopbackServer server;
        QVERIFY(!server.listen().hasError());
        const QList<int> statuses{200, 201, 204, 400, 401, 403, 404, 408, 429, 440, 500, 503};
        for (const int status : statuses)
            server.addReply(QStringLiteral("/%1").arg(status), LoopbackReply(status, REPLY_SECRET));
        server.addReply(QStringLiteral("/silent"), LoopbackReply::silence());
        server.addReply(QStringLiteral("/cut"), LoopbackReply(200, REPLY_SECRET.repeated(9)).cutAfter(110));
        server.addReply(QStringLiteral("/login"), LoopbackReply(401));
        server.addReply(QStringLiteral("/login"), LoopbackReply(200, REPLY_SECRET));

        LogCatcher log("orv.network=true");
        using Method = NetworkRequest::Method;
        for (const auto method : {Method::Get, Method::Post, Method::Put, Method::Delete}) {
            for (const int status : statuses)
                run(server.url(QStringLiteral("/%1").arg(status)), method);
            for (const auto* path : {"/silent", "/cut", "/login"})
                run(server.url(QLatin1String(path)), method);
            run(QStringLiteral("http://127.0.0.1:1/"), method);
            run(QStringLiteral("data:text/plain,hello"), method);
            run(server.url(QStringLiteral("/200")), method, "line\r\nbreak " + FIELD_SECRET);
        }
        FileDownloadTask download(withPassword(server.url(QStringLiteral("/200"))),
                                  m_home.filePath(QStringLiteral("file")));
        FileDownloadTask failed(withPassword(server.url(QStringLiteral("/404"))), m_home.path());
        for (auto* task : {&download, &failed}) {
            task->exec();
            QVERIFY(runUntil([=] { return task->isFinished(); }));
        }

        QSet<QString> levels;
        for (const auto& line : std::as_const(log.lines)) {
            const auto level = line.section(QLatin1Char('|'), 0, 0);
            levels.insert(level);
            const auto bytes = line.toUtf8();
            for (const auto& secret : {BODY_SECRET, PART_SECRET, FIELD_SECRET, URL_SECRET})
                QVERIFY2(!bytes.contains(secret), bytes.constData());
            const bool isDebug = level == QString::number(QtDebugMsg);
            for (const auto& secret : {TOKEN, OLD_TOKEN, REPLY_SECRET})
                QVERIFY2(isDebug || !bytes.contains(secret), bytes.constData());
        }
        QCOMPARE(levels.size(), 3); // debug, info, warning
        const auto all = log.text().replace(QStringLiteral("|orv.network|"), QStringLiteral(" "));
        const auto expected =
            QByteArray("4 Sending request:|4 Using dataContentType \"application/json\" (|******|"
                       "4 Using multipart message:|0 New access token:|0 Retrying...|Network timeout in task|"
                       "attempt #|0 Can't retry task|0 Server response: r3ply-secret|"
                       "1 Network error: RemoteHostClosedError|1 Download error of file|4 Downloaded file|"
                       "0 Applying error policy \"FinishWithError\"|4 No token, auth required|"
                       "0 Authentication required for task|0 Authentication granted|0 Status code: |"
                       "0 Handling status code \"NotFound\"|0 Network error on successful reply|"
                       "0 Unhandled reply|0 Recoverable error occurred:|0 Processing failed reply...")
                .split('|');
        for (const auto& seen : expected)
            QVERIFY2(all.contains(QLatin1String(seen)), seen.constData());
        QVERIFY(!all.contains(QLatin1String(REPLY_SECRET.repeated(2)))); // is cut off, as is the next
        QVERIFY(log.lines.filter(QStringLiteral("Using dataContentType")).constFirst().size() < 2100);
    }

private:
    static void run(const QString& url, NetworkRequest::Method method, const QByteArray& field = FIELD_SECRET)
    {
        for (const bool hasToken : {true, false}) {
            Login login;
            if (!hasToken)
                login.currentToken.clear();
            TestTask task(withPassword(url), method);
            task.setAuthenticator(&login);
            task.setMaxRetriesCount(1);
            task.setDelayPolicy(Retriable::DelayPolicy::None);
            task.setTimeout(url.contains(QLatin1String("silent")) ? 30 : 60000);
            task.change([&](NetworkRequest& request) {
                request.rawHeaders.insert("X-Key", field);
                request.postData = BODY;
                request.postDataContentType = NetworkRequest::jsonContentType;
                request.setMaskingRegularExpression(
                    QRegularExpression(QStringLiteral("(\"password\":\")[^\"]*(\")")));
            });
            if (!hasToken) {
                task.multiPartFactory = [] {
                    auto* content = new QHttpMultiPart(QHttpMultiPart::FormDataType);
                    QHttpPart part;
                    part.setBody(PART_SECRET);
                    content->append(part);
                    return content;
                };
            }
            QVERIFY(task.run());
            for (const auto& text : {task.error().errorMessage(), task.networkResponseErrorMessage()})
                QVERIFY2(!text.contains(QLatin1String(URL_SECRET)), qPrintable(text));
        }
    }

    const TemporarySettings m_settings;
    const QTemporaryDir m_home;
};

QTEST_GUILESS_MAIN(tst_Secrets)

#include "tst_Secrets.moc"
