#pragma once

#include "JsonLogin.h"

#include <NetworkTask.h>

#include <QNetworkRequest>
#include <QString>

#include <utility>

namespace fetch {

/// A network task derived from @p Base that treats any 2xx as a success and shares a JsonLogin with other
/// tasks.
///
/// It remembers which token its request was sent with. If that token is refused after another task has
/// already obtained a new one, the request is sent again without another login.
template <typename Base>
class FetchTask : public Base
{
public:
    template <typename... Arguments>
    explicit FetchTask(Arguments&&... arguments)
        : Base(std::forward<Arguments>(arguments)...)
    {
        using orv::HttpResponseStatusCode;
        // By default, only 200 and 201 are successes.
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

    // Without a limit, a server that refuses every token it issues would keep the task busy for ever.
    static constexpr int MAX_REFUSALS = 3;

    QString m_token; // sent with the last request
    int m_refusals = 0;
};

} // namespace fetch
