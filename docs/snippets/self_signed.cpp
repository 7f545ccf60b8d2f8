#include "Snippets.h"

#include <NetworkQueue.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QSslCertificate>
#include <QSslConfiguration>

using namespace Qt::StringLiterals;

namespace {

//! [pinned]
class PinnedAccessManager : public orv::SslIgnorantNetworkAccessManager
{
public:
    PinnedAccessManager(const QSslCertificate& certificate, QObject* parent)
        : SslIgnorantNetworkAccessManager(SslMode::Verify, parent)
        , m_configuration(QSslConfiguration::defaultConfiguration())
    {
        m_configuration.setCaCertificates({certificate}); // trust only this one
    }

protected:
    QNetworkReply* createRequest(Operation op, const QNetworkRequest& request,
                                 QIODevice* outgoingData = nullptr) override
    {
        QNetworkRequest copy(request);
        copy.setSslConfiguration(m_configuration);
        return SslIgnorantNetworkAccessManager::createRequest(op, copy, outgoingData);
    }

private:
    QSslConfiguration m_configuration;
};
//! [pinned]

/// An https server with a self-signed certificate.
class InHouseServer : public orv::LoopbackServer
{
public:
    InHouseServer()
        : LoopbackServer(Transport::Tls)
    {
        addReply(u"/hello"_s, orv::LoopbackReply(200, "hello"));
    }
};

} // namespace

void Snippets::selfSignedIgnored()
{
    InHouseServer server;
    QVERIFY(!server.listen().hasError());
    orv::SslIgnorantNetworkAccessManager
        verifying; // Qt prints a warning if TLS connections outlive the application object
    orv::NetworkTask refused(server.url(u"/hello"_s));
    refused.setNetworkAccessManager(&verifying);
    refused.exec();
    QVERIFY(!succeeds(&refused));
    QCOMPARE(refused.networkResponseError(), QNetworkReply::SslHandshakeFailedError);
    QCOMPARE(refused.error().errorDetails().toInt(), 2000);

    orv::NetworkTask whole(server.url(u"/hello"_s));
    auto* task = &whole;
    orv::NetworkQueue queue;
    //! [queue]
    queue.setIgnoreSslErrors(true);
    queue.append(task);
    //! [queue]
    QVERIFY(succeeds(task));
    delete queue.networkAccessManager();

    orv::NetworkTask alone(server.url(u"/hello"_s));
    task = &alone;
    //! [task]
    using orv::SslIgnorantNetworkAccessManager;
    auto* manager =
        new SslIgnorantNetworkAccessManager(SslIgnorantNetworkAccessManager::SslMode::Ignore, this);
    task->setNetworkAccessManager(manager);
    task->exec();
    //! [task]
    QVERIFY(succeeds(task));
    delete manager;
}

void Snippets::selfSignedTrusted()
{
    InHouseServer server;
    QVERIFY(!server.listen().hasError());
    const auto before = QSslConfiguration::defaultConfiguration();
    const QByteArray pem = orv::LoopbackServer::certificate().toPem();

    //! [trusted]
    auto configuration = QSslConfiguration::defaultConfiguration();
    configuration.addCaCertificate(QSslCertificate(pem));
    QSslConfiguration::setDefaultConfiguration(configuration);
    //! [trusted]

    orv::SslIgnorantNetworkAccessManager manager;
    orv::NetworkTask task(server.url(u"/hello"_s));
    task.setNetworkAccessManager(&manager);
    task.exec();
    QVERIFY(succeeds(&task));
    QSslConfiguration::setDefaultConfiguration(before);
}

void Snippets::selfSignedPinned()
{
    InHouseServer server;
    QVERIFY(!server.listen().hasError());
    PinnedAccessManager manager(orv::LoopbackServer::certificate(), nullptr);
    orv::NetworkTask task(server.url(u"/hello"_s));
    task.setNetworkAccessManager(&manager);
    task.exec();
    QVERIFY(succeeds(&task));
}
