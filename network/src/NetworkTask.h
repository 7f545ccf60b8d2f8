#pragma once

#include "Authenticable.h"
#include "HttpResponseStatusCodesUtils.h"
#include "NetworkConstants.h"
#include "NetworkRequest.h"
#include "orv_network_export.h"
#include "Retriable.h"

#include <Result.h>
#include <Task.h>

#include <QHash>
#include <QList>
#include <QMetaObject>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QSet>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QHttpMultiPart;
class QJsonObject;

namespace orv {

class SslIgnorantNetworkAccessManager;

/// One HTTP exchange as a task: it sends a request, collects or streams the reply and ends, exactly once,
/// with the content or with an Error.
///
/// exec() starts it from the event loop, alone or through a NetworkQueue. A reply with the status 200 or 201
/// ends the task with success; every other status and every transport failure becomes an Error whose details
/// hold a number, see HttpResponseStatusCodesUtils.h. What passes (time-outs, 408, 429, 503 and the like, and
/// a 200 or 201 whose content was cut off) is retried after a growing delay; a missing or refused token makes
/// the task wait for its authenticator. Handlers for single statuses and two error policies change this for
/// one task.
/// @code
/// auto* task = new NetworkTask(url, NetworkTask::Priority::Normal, this);
/// connect(task, &NetworkTask::finished, this, [this, task] {
///     if (task->hasError())
///         showError(task->error().errorMessage());
///     else
///         show(task->data());
///     task->deleteLater();
/// });
/// task->exec();
/// @endcode
///
/// Redirects are never followed: a 3xx reply is a status like any other. The time-out measures inactivity,
/// not the whole exchange.
///
/// The task owns its reply, its time-out timer and any multipart content. It refers to its authenticator and
/// its access manager without owning them; either may be destroyed at any time, and the task still ends. It
/// is used from the thread that it lives on. Any public function may be called, and the task deleted, in any
/// slot and in any handler.
class ORV_NETWORK_EXPORT NetworkTask : public Task, public Retriable, public Authenticable
{
    Q_OBJECT

public:
    /// What a task does with an error.
    enum ErrorPolicy {
        Ignore = 0,            ///< Nothing: the task stays running, and its user must finish it.
        FinishWithError = 1,   ///< Ends with the error.
        FinishWithSuccess = 2, ///< Drops the error and ends with success.
    };
    Q_ENUM(ErrorPolicy)

    /// How early a queue runs a task.
    enum Priority {
        Low = 0,    ///< After all others; retried tasks come here too.
        Normal = 1, ///< In between.
        High = 2,   ///< Before all others.
    };

    /// What prepareRequest() makes a request from.
    struct PrepareRequestParams
    {
        QUrl baseUrl;         ///< The server: scheme, host and port, and user information if any.
        QString relativePath; ///< Path, query and fragment; must start with '/'.
        NetworkRequest::Method method = NetworkRequest::Method::Get; ///< What is asked of the server.
        QByteArray body;                                             ///< JSON to send; none when empty.
        bool streaming = false;                                      ///< NetworkRequest::streaming.
    };

    /// An idle task without a request.
    explicit NetworkTask(Priority priority = Normal, QObject* parent = nullptr);
    /// A task for @p request.
    explicit NetworkTask(const NetworkRequest& request, Priority priority = Normal,
                         QObject* parent = nullptr);
    /// A task that gets @p url and accepts JSON.
    explicit NetworkTask(const QString& url, Priority priority = Normal, QObject* parent = nullptr);
    ~NetworkTask() override;

    // The request. What is set after exec() counts from the next attempt on.

    /// What the task asks for.
    NetworkRequest request() const;
    /// Replaces all of it.
    void setRequest(const NetworkRequest& request);
    /// Sets these four fields and leaves header fields, content and masking as they are.
    void setRequest(const QString& url, const QByteArray& acceptedContentTypes, NetworkRequest::Method method,
                    bool streaming);

    /// How long an attempt may go without progress in either direction; 300,000 ms by default. The
    /// application setting "Network/Timeout" (ms) overrides it. 0 times out in the next turn of the event
    /// loop, a negative value never. A value that does not fit into 32 bits is cut to them.
    std::chrono::milliseconds timeout() const;
    /// Counts from the next attempt on.
    void setTimeout(const std::chrono::milliseconds& timeout);
    /// The same.
    void setTimeout(int milliseconds);

    /// The User-Agent: the one set, even an empty one, else defaultUserAgent().
    QByteArray userAgent() const;
    /// Sets it; an empty one is sent empty.
    void setUserAgent(const QByteArray& userAgent);
    /// Whether one has been set, by the program or by a NetworkQueue.
    bool hasOverriddenUserAgent() const;
    /// "OrvLabs".
    static QByteArray defaultUserAgent();

    /// Attributes for every request of the task, set last: they may replace the redirect policy, and allow
    /// HTTP/2, which is off at first because Qt may lose requests when a server ends such a connection: they
    /// then wait for timeout().
    QHash<QNetworkRequest::Attribute, QVariant> requestAttributes() const;
    /// Replaces all of them.
    void setRequestAttributes(const QHash<QNetworkRequest::Attribute, QVariant>& attributes);
    /// Adds one, in place of one for the same @p attribute.
    void setRequestAttribute(QNetworkRequest::Attribute attribute, const QVariant& value);

    /// The access manager to send through, null for defaultNetworkAccessManager(). Not owned. Null again once
    /// it is destroyed; an exchange that it carried has then failed.
    SslIgnorantNetworkAccessManager* networkAccessManager() const;
    /// Sets it, to be used from the next attempt on. It must live on the task's thread.
    void setNetworkAccessManager(SslIgnorantNetworkAccessManager* manager);
    /// The manager of the process, made on the first call, on the thread of that call, as a child of the
    /// application object. Null once that is gone: a task without another manager then sends nothing and
    /// stays running.
    static SslIgnorantNetworkAccessManager* defaultNetworkAccessManager();

    // Login.

    /// Whether requests must carry a token. Setting an authenticator turns it on.
    bool requiresAuthentication() const;
    /// Turns it on or off. Turned on without an authenticator, the task ends with
    /// ErrorCode::AuthenticationFailed when it comes to send.
    void setRequiresAuthentication(bool required);
    /// Sets where the token comes from. A task that waits for another authenticator goes on with this one;
    /// null leaves requiresAuthentication() as it is, so such a task ends with
    /// ErrorCode::AuthenticationFailed. A server that refuses the tokens of ten logins in a row ends
    /// the task under the response error policy with ErrorCode::AuthenticationFailed, 2401 in the details.
    void setAuthenticator(AbstractAuthenticator* authenticator) override;

    // Judging the reply.

    /// What becomes of transport failures and unhandled statuses; FinishWithError by default.
    ErrorPolicy replyErrorPolicy() const;
    /// Counts for errors from now on.
    void setReplyErrorPolicy(ErrorPolicy policy);
    /// What becomes of 400, 404 and failed logins; FinishWithError by default.
    ErrorPolicy responseErrorPolicy() const;
    /// Counts for errors from now on.
    void setResponseErrorPolicy(ErrorPolicy policy);
    /// Ends the task, or not, as @p policy says.
    void applyErrorPolicy(ErrorPolicy policy, Error error);
    /// applyErrorPolicy() with replyErrorPolicy().
    void applyReplyErrorPolicy(const Error& error);
    /// applyErrorPolicy() with responseErrorPolicy().
    void applyResponseErrorPolicy(const Error& error);

    /// Sets what is done about a status, in place of everything the task would do, finishing included: the
    /// handler must see to it that the task ends. It is called once for each attempt that ends with that
    /// status, and may delete the task. Calling an empty handler throws std::bad_function_call.
    void setResponseHandler(HttpResponseStatusCode code, std::function<void()> handler);
    /// The same for several statuses.
    void setResponseHandler(const QList<HttpResponseStatusCode>& codes, std::function<void()> handler);

    /// Adds to the transport errors that are retried: at first TimeoutError, ProxyTimeoutError,
    /// TemporaryNetworkFailureError, UnknownNetworkError and ServiceUnavailableError (503). Looked at where
    /// no status decides.
    void registerRecoverableNetworkErrors(const QSet<QNetworkReply::NetworkError>& errors);
    /// Takes transport errors away from those that are retried.
    void unregisterRecoverableNetworkErrors(const QSet<QNetworkReply::NetworkError>& errors);

    // The reply.

    /// The content received so far; the whole of it once the reply is complete. While a task does not stream,
    /// the content stays with the reply until it is complete. Kept until clearData() or the next attempt.
    QByteArray data() const;
    /// Replaces data(), for a task that makes something else of it.
    void setData(QByteArray data);
    /// Drops data(). What the reply still holds is not dropped and may come after it.
    void clearData();
    /// Drops the first @p count bytes of data() without copying the rest. Returns how many are left, or -1,
    /// and changes nothing, when there are none or fewer than @p count, or when @p count is negative.
    int chopFirstBytes(int count);
    /// Bytes of content that the current or last reply has reported.
    qint64 bytesReceived() const;

    /// The status of the last reply. HttpResponseStatusCode::OK from exec() until a reply has been judged.
    HttpResponseStatusCode httpResponseStatusCode() const;
    /// Sets the number as well.
    void setHttpResponseStatusCode(HttpResponseStatusCode code);
    /// The same as a number; 0 until a reply has been judged, and where there is no status.
    int httpResponseStatusCodeNumber() const;
    /// Sets the number alone.
    void setHttpResponseStatusCodeNumber(int number);
    /// The transport error of the last reply. Qt reports error statuses as transport errors too, 404 as
    /// ContentNotFoundError for one.
    QNetworkReply::NetworkError networkResponseError() const;
    /// Sets it, for subclasses that judge replies themselves.
    void setNetworkResponseError(QNetworkReply::NetworkError error);
    /// The text of networkResponseError(); empty where there is none.
    QString networkResponseErrorMessage() const;
    /// Sets it, for subclasses that judge replies themselves.
    void setNetworkResponseErrorMessage(const QString& message);

    /// The current reply, or null. Owned by the task: never delete it. In slots connected to the reply
    /// itself, unlike in those of the task, Qt's rule holds: do not delete the task or replace the reply
    /// there, but use deleteLater() or cancel().
    QNetworkReply* networkReply();
    /// The same.
    const QNetworkReply* networkReply() const;
    /// Gives the task a reply of which it takes ownership, in place of the current one, which is deleted.
    void setNetworkReply(QNetworkReply* reply);
    /// The connection to the reply's completion, while one is awaited.
    std::optional<QMetaObject::Connection> networkConnection();
    /// Replaces the connection and stops the time-out timer.
    void setNetworkConnection(QMetaObject::Connection connection);
    /// Drops the connection and stops the time-out timer: the current reply will not be judged any more.
    void resetNetworkConnection();
    /// resetNetworkConnection(), and forgets content, error and status.
    void clearNetworkState();
    /// Aborts the current reply, if there is one.
    void abort();

    /// Has no effect while the task waits for a delay or a login: it goes on by itself, and holds no slot of
    /// its queue until then.
    void resume() override;

    /// A text for the log line of a failed reply; empty here, for subclasses.
    virtual QString errorMessage() const;

Q_SIGNALS:
    /// Content has arrived: in data() when the request streams, else to be taken with read(). Any number of
    /// times for each attempt, also while the content of an error status arrives. Deleting the task in a slot
    /// is safe, as with every signal of the task.
    void readyRead() const;
    /// The task is queued or executing again after a failed attempt. Once for each aboutToRetry(), unless the
    /// task is ended or deleted meanwhile.
    void retried() const;
    /// A failed attempt is about to be repeated: its reply's state has been dropped and the retry counted.
    void aboutToRetry();

public Q_SLOTS:
    /// Takes up to @p maxSize bytes (250 MB by default) of the content that the reply holds. Bypasses data().
    /// Empty for a negative size.
    QByteArray read(qint64 maxSize = 250 * MB);
    /// Starts an attempt, after retryDelay() and from the event loop. To be called for an idle task, by its
    /// queue or by whoever made it; a finished task is not run again.
    void exec() override;
    /// Ends the task with ErrorCode::Canceled, wherever it stands; nothing is sent and no signal but
    /// canceled() and finished() is emitted after that.
    void cancel() override;

protected:
    void finalize() override;
    Error doFinish() override;

    /// Called for a reply whose status has no handler. Fails the task, after retries if the transport error
    /// is a recoverable one.
    virtual void processUnhandledReply();
    /// Puts the token into @p request. Returns whether it may be sent now; if not, a login has been asked
    /// for.
    virtual bool doAuthenticateRequest(QNetworkRequest* request);
    /// Rewrites a relative path before prepareRequest() uses it; the path as it is, here.
    virtual QString fullRelativePath(const QString& relativePath) const;
    /// Makes the content of a Post or Delete request; null, for none, here. Called once for each attempt; the
    /// task takes ownership and deletes it with the attempt's reply.
    virtual QHttpMultiPart* createMultiPart() const;

    /// A request for a path on a server, which accepts JSON and sends the body, if there is one, as JSON.
    /// Path, query and fragment of the base URL are replaced. ErrorCode::InvalidArgument for a path that does
    /// not start with '/'.
    Result<NetworkRequest> prepareRequest(const PrepareRequestParams& params) const;
    /// The same without a body.
    Result<NetworkRequest> prepareRequest(const QUrl& baseUrl, const QString& relativePath,
                                          NetworkRequest::Method method) const;
    /// The same with @p json as the body, in its indented form.
    Result<NetworkRequest> prepareRequest(const QUrl& baseUrl, const QString& relativePath,
                                          NetworkRequest::Method method, const QJsonObject& json) const;
    /// The same without a body, for a reply that is streamed or not.
    Result<NetworkRequest> prepareRequest(const QUrl& baseUrl, const QString& relativePath,
                                          NetworkRequest::Method method, bool streaming) const;

    /// Reads error and status off the reply. Returns whether it can be processed.
    bool setNetworkTaskStatusFromReply();
    /// Retries, or ends the task under the reply error policy; an empty @p message stands for the reply's own
    /// text.
    void processFailedReply(const QString& message);
    /// Starts another attempt if one is allowed, and returns whether it did.
    bool retry();
    /// Waits for a login and sends the request again, for subclasses that learn of an expired login in their
    /// own way.
    void handleUnauthorizedError();

private:
    static constexpr qint64 MB = 1048576;

    class Private;
    std::unique_ptr<Private> d;
};

/// Writes the task with its request (content masked) and what it received, in no-space mode.
ORV_NETWORK_EXPORT QDebug operator<<(QDebug debug, const NetworkTask& task);

} // namespace orv
