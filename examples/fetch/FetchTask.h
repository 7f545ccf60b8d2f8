#pragma once

#include <NetworkTask.h>

#include <utility>

namespace fetch {

/// A network task derived from @p Base that treats any 2xx as a success.
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
};

} // namespace fetch
