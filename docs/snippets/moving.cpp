#include "Snippets.h"

#include <SslIgnorantNetworkAccessManager.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>

using namespace Qt::StringLiterals;

void Snippets::movedFromManager()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, "ann"));
    const auto url = m_url + u"/users"_s;
    QNetworkAccessManager manager;

    //! [before]
    QNetworkRequest request{QUrl(url)};
    request.setRawHeader("Accept", "application/json");
    request.setTransferTimeout(20000);
    QNetworkReply* reply = manager.get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        if (reply->error() != QNetworkReply::NoError)
            showError(reply->errorString());
        else
            use(reply->readAll());
    });
    //! [before]

    QTRY_COMPARE(m_shown, "ann");
    m_shown.clear();

    //! [after]
    auto* task = new orv::NetworkTask(url, orv::NetworkTask::Priority::Normal, this);
    task->setTimeout(20000);
    task->setAutoDelete(true);
    connect(task, &orv::NetworkTask::finished, this, [this, task] {
        if (task->hasError())
            showError(task->error().errorMessage());
        else
            use(task->data());
    });
    task->exec();
    //! [after]

    QTRY_COMPARE(m_shown, "ann");
    m_shown.clear();

    m_server->addReply(u"/old"_s, orv::LoopbackReply(308).withField("Location", "/users"));
    orv::NetworkTask moved(m_url + u"/old"_s);
    //! [redirects]
    moved.setRequestAttribute(QNetworkRequest::RedirectPolicyAttribute,
                              QNetworkRequest::SameOriginRedirectPolicy);
    //! [redirects]
    moved.exec();
    QVERIFY(succeeds(&moved));
    QCOMPARE(moved.data(), "ann");
}
