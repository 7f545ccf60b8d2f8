#include "Snippets.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

//! [successes]
class TolerantTask : public orv::NetworkTask
{
public:
    using NetworkTask::NetworkTask;

protected:
    // Called for a status without a handler.
    void processUnhandledReply() override
    {
        const int status = httpResponseStatusCodeNumber();
        const bool isComplete = networkResponseError() == QNetworkReply::NoError;
        if (status >= 200 && status <= 299 && isComplete)
            finish(orv::Error());
        else
            NetworkTask::processUnhandledReply();
    }
};
//! [successes]

} // namespace

void Snippets::statusHandlers()
{
    m_server->addReply(u"/users/7"_s, orv::LoopbackReply(204));
    m_server->addReply(u"/users/7"_s, orv::LoopbackReply(409));
    const auto remove = [this] {
        auto task = std::make_unique<orv::NetworkTask>();
        task->setRequest(m_url + u"/users/7"_s, {}, orv::NetworkRequest::Method::Delete, false);
        return task;
    };
    const auto whole = remove();
    auto* task = whole.get();

    //! [handlers]
    task->setResponseHandler(orv::HttpResponseStatusCode(204), [task] { task->finish(orv::Error()); });
    task->setResponseHandler(orv::HttpResponseStatusCode(409), [task] {
        task->finish(orv::Error(orv::ErrorCode::Network, 2409, tr("Someone else has changed this user")));
    });
    //! [handlers]

    task->exec();
    QVERIFY(succeeds(task));

    const auto second = remove();
    const auto conflict = [task = second.get()] {
        task->finish(orv::Error(orv::ErrorCode::Network, 2409, tr("Someone else has changed this user")));
    };
    second->setResponseHandler(orv::HttpResponseStatusCode(409), conflict);
    second->exec();
    QVERIFY(!succeeds(second.get()));
    QCOMPARE(static_cast<int>(orv::httpResponseStatusCode(second->error())), 409);

    const auto unhandled = remove();
    m_server->addReply(u"/users/7"_s, orv::LoopbackReply(204));
    unhandled->exec();
    QVERIFY(!succeeds(unhandled.get())); // by default, 204 is not a success
    QCOMPARE(unhandled->error().errorDetails().toInt(), 2204);
}

void Snippets::statusPolicies()
{
    orv::NetworkTask whole(m_url + u"/avatar"_s);
    auto* task = &whole;
    //! [policy]
    task->setResponseErrorPolicy(orv::NetworkTask::FinishWithSuccess); // 400, 404, failed logins
    //! [policy]
    task->exec();
    QVERIFY(succeeds(task));
    QCOMPARE(task->httpResponseStatusCode(), orv::HttpResponseStatusCode::NotFound);
}

void Snippets::statusAllSuccesses()
{
    for (const int status : {202, 204}) {
        const auto path = u"/%1"_s.arg(status);
        m_server->addReply(path, orv::LoopbackReply(status));
        TolerantTask task(m_url + path);
        task.exec();
        QVERIFY(succeeds(&task));
    }
    m_server->addReply(u"/409"_s, orv::LoopbackReply(409));
    TolerantTask task(m_url + u"/409"_s);
    task.exec();
    QVERIFY(!succeeds(&task));
}

void Snippets::statusErrorContent()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply::json({{u"reason"_s, u"The name is taken"_s}}, 400));
    orv::NetworkTask whole(m_url + u"/users"_s);
    auto* task = &whole;

    //! [content]
    connect(task, &orv::NetworkTask::finished, this, [this, task] {
        if (!task->hasError())
            return;
        const auto reason = QJsonDocument::fromJson(task->data()).object().value("reason"_L1).toString();
        showError(reason.isEmpty() ? task->error().errorMessage() : reason);
    });
    //! [content]

    task->exec();
    QTRY_COMPARE(m_errors, QStringList(u"The name is taken"_s));

    //! [numbers]
    const auto status = orv::httpResponseStatusCode(task->error());
    if (status == orv::HttpResponseStatusCode::BadRequest)
        use("bad request");
    //! [numbers]
    QCOMPARE(m_shown, "bad request");
}
