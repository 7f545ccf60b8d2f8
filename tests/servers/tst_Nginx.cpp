#include "FetchProcess.h"
#include "Nginx.h"

#include <QTest>

using namespace Qt::StringLiterals;

/// The program orv-fetch, and with it the whole library, against a server that others have written.
class tst_Nginx : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void fetches_data();
    void fetches();
    void refusesAnUnknownCertificate();

private:
    std::unique_ptr<Nginx> m_nginx;
};

void tst_Nginx::initTestCase()
{
    if (!Nginx::isAvailable())
        QSKIP("nginx or openssl is not installed");
    m_nginx = std::make_unique<Nginx>();
    const auto failure = m_nginx->start();
    QVERIFY2(failure.isEmpty(), qPrintable(failure));
}

void tst_Nginx::cleanupTestCase()
{
    m_nginx.reset();
}

void tst_Nginx::fetches_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("content");

    const auto row = [](const char* name, const QString& path, int exitCode, const QByteArray& content = {},
                        const QStringList& options = {}) {
        QTest::addRow("%s", name) << path << options << exitCode << content;
        QTest::addRow("%s, streaming", name)
            << path << options + QStringList{u"--stream"_s} << exitCode << content;
    };
    row("text", u"/text"_s, 0, "Hello from nginx.\n");
    row("a megabyte", u"/random"_s, 0, m_nginx->content());
    row("a range", u"/text"_s, 0, "from", {u"-H"_s, u"Range: bytes=6-9"_s});
    row("no content", u"/text"_s, 0, {}, {u"-XHEAD"_s});
    row("a method that is not allowed", u"/text"_s, 4, {}, {u"-XDELETE"_s});
    row("no such path", u"/missing"_s, 4);
    row("closed", u"/closed"_s, 3);
}

void tst_Nginx::fetches()
{
    QFETCH(const QString, path);
    QFETCH(const QStringList, options);
    QFETCH(const int, exitCode);
    QFETCH(const QByteArray, content);

    for (const auto& url : {m_nginx->httpUrl(path), m_nginx->httpsUrl(path)}) {
        FetchProcess fetch(options + QStringList{u"--insecure"_s, url});
        QVERIFY2(fetch.run() == exitCode, fetch.messages().constData());
        QVERIFY2(fetch.output() == content, QByteArray::number(fetch.output().size()).constData());
    }
    FetchProcess head({u"-ki"_s, m_nginx->httpsUrl(u"/text"_s)});
    QCOMPARE(head.run(), 0);
    QVERIFY2(head.output().startsWith("HTTP/2 200"), head.output().constData());
}

void tst_Nginx::refusesAnUnknownCertificate()
{
    FetchProcess fetch({m_nginx->httpsUrl(u"/text"_s)});
    QCOMPARE(fetch.run(), 3);
    QVERIFY2(fetch.messages().contains("certificate"), fetch.messages().constData());
    QCOMPARE(fetch.output(), QByteArray());
}

QTEST_GUILESS_MAIN(tst_Nginx)
#include "tst_Nginx.moc"
