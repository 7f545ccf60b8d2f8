#pragma once

#include "JsonLogin.h"

#include <NetworkTask.h>

#include <QNetworkRequest>
#include <QString>

#include <utility>

namespace fetch {

/// A network task of the kind @p Base that takes any 2xx for a success and shares a JsonLogin with others.
///
/// It knows which token its request was sent with. So a refusal that comes late, when another task has
/// already been given a new token, makes it send again and not log in.
template <typename Base>
class FetchTask : public Base
{
public:
    template <typename... Arguments>
    explicit FetchTask(Arguments&&... arguments)
        : Base(std::forward<Arguments>(arguments)...)
    {
        using orv::HttpResponseStatusCode;
        // By itself, a task takes 200 and 201 for a success.
        for (int status = 202; status < 300; ++status)
            this->setResponseHandler(static_cast<HttpResponseStatusCode>(status), [this] { onSuccess(); });
        this->setResponseHandler(HttpResponseStatusCode::Unauthorized, [this] { onUnauthorized(); });
    }

protected:
    bool doAuthenticateRequest(QNetworkRequest* request) override
    {
        m_token = this->authenticator()->token();
        return Base::doAuthenticateRequest(request);
    }

private:
    void onSuccess()
    {
        if (this->networkResponseError() != QNetworkReply::NoError) {
            this->processFailedReply({});
            return;
        }
        // A file is saved for no other 2xx.
        this->setHttpResponseStatusCode(orv::HttpResponseStatusCode::OK);
        this->finish(orv::Error());
    }

    void onUnauthorized()
    {
        auto* login = qobject_cast<JsonLogin*>(this->authenticator());
        if (!login || ++m_refusals > MAX_REFUSALS) {
            this->processUnhandledReply();
            return;
        }
        login->refuse(m_token);
        this->handleUnauthorizedError();
    }

    // A server that refuses every token it gives must not keep a task for ever.
    static constexpr int MAX_REFUSALS = 3;

    QString m_token; // of the last request
    int m_refusals = 0;
};

} // namespace fetch
