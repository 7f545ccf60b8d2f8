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
class QRandomGenerator;

namespace orv {

class SslIgnorantNetworkAccessManager;

// Authenticable has a public destructor that is not virtual, and must not be deleted through.
QT_WARNING_PUSH
QT_WARNING_DISABLE_GCC("-Wnon-virtual-dtor")

/// One HTTP exchange as a task: it sends a request, collects or streams the content of the reply and ends,
/// exactly once, with the content or with an Error.
///
/// exec() starts it from the event loop, alone or through a NetworkQueue. A reply with the status 200 or 201
/// ends the task with success; every other status and every transport failure becomes an Error whose details
/// hold a number, see HttpResponseStatusCodesUtils.h. Transient failures (time-outs, 408, 429, 503 and the
/// like, and a 200 or 201 whose content was cut off) are retried after a growing delay; without a token that
/// the server accepts, the task waits for its authenticator. Handlers for single statuses and two error
/// policies change this for one task.
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
/// Redirects are not followed: a 3xx reply is a status like any other. The time-out measures inactivity, not
/// the whole exchange. One attempt is under way at a time, and an attempt that is given up (for a login, a
/// retry or the end of the task) aborts its reply and has no further effect.
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
        Low = 0,    ///< After all others; also that of every retried task.
        Normal = 1, ///< The default.
        High = 2,   ///< Before all others.
    };

    /// Which time-out of its own, if any, a task has run into.
    enum class TimeoutKind {
        None,       ///< None. The status 408 is a server's time-out, not one of the task.
        Inactivity, ///< timeout(): the last attempt made no progress.
        Deadline,   ///< deadline(): the task has taken too long as a whole.
    };

    /// What prepareRequest() makes a request from.
    struct PrepareRequestParams
    {
        QUrl baseUrl;         ///< The server: scheme, host and port, and user information if any.
        QString relativePath; ///< Path, query and fragment; must start with '/'.
        NetworkRequest::Method method = NetworkRequest::Method::Get; ///< Method of the request.
        QByteArray body;                                             ///< JSON to send; none when empty.
        bool streaming = false;                                      ///< NetworkRequest::streaming.
    };

    /// @name Construction
    /// @{

    /// An idle task without a request.
    explicit NetworkTask(Priority priority = Normal, QObject* parent = nullptr);
    /// A task for @p request.
    explicit NetworkTask(const NetworkRequest& request, Priority priority = Normal,
                         QObject* parent = nullptr);
    /// A task that gets @p url and accepts JSON.
    explicit NetworkTask(const QString& url, Priority priority = Normal, QObject* parent = nullptr);
    /// Aborts the reply if it is still arriving. Emits nothing but destroyed().
    ~NetworkTask() override;

    /// @}
    /// @name Request
    /// What is set after exec() counts from the next attempt on.
    /// @{

    /// The request to send.
    NetworkRequest request() const;
    /// Replaces the whole request.
    void setRequest(const NetworkRequest& request);
    /// Sets these four fields and leaves header fields, content and masking as they are.
    void setRequest(const QString& url, const QByteArray& acceptedContentTypes, NetworkRequest::Method method,
                    bool streaming);

    /// How long an attempt may go without progress in either direction; 300,000 ms by default. The
    /// application setting "Network/Timeout" (ms) overrides it, unless it is not a number. 0 times out in the
    /// next turn of the event loop, a negative value never. Values beyond 32 bits are truncated.
    std::chrono::milliseconds timeout() const;
    /// Sets timeout() for the attempts to come.
    void setTimeout(const std::chrono::milliseconds& timeout);
    /// Sets timeout() in milliseconds.
    void setTimeout(int milliseconds);

    /// The User-Agent: the one set, even an empty one, else defaultUserAgent().
    QByteArray userAgent() const;
    /// Sets the User-Agent. An empty one is sent as an empty field, from Qt 6.8 on as "Mozilla/5.0", which Qt
    /// puts in its place.
    void setUserAgent(const QByteArray& userAgent);
    /// Whether a User-Agent has been set, by the program or by a NetworkQueue.
    bool hasOverriddenUserAgent() const;
    /// "OrvLabs".
    static QByteArray defaultUserAgent();

    /// Attributes for every request of the task. They are set last, so they may replace the redirect policy,
    /// and allow HTTP/2, which is off by default: Qt may lose requests when a server closes such a
    /// connection, and they then wait for timeout().
    QHash<QNetworkRequest::Attribute, QVariant> requestAttributes() const;
    /// Replaces all attributes.
    void setRequestAttributes(const QHash<QNetworkRequest::Attribute, QVariant>& attributes);
    /// Sets one attribute and keeps the others.
    void setRequestAttribute(QNetworkRequest::Attribute attribute, const QVariant& value);

    /// The access manager to send through, null for defaultNetworkAccessManager(). Not owned. Null again once
    /// it is destroyed; an exchange through it has then failed.
    SslIgnorantNetworkAccessManager* networkAccessManager() const;
    /// Sets the access manager for the attempts to come. It must live on the task's thread.
    void setNetworkAccessManager(SslIgnorantNetworkAccessManager* manager);
    /// The manager of the process, made by the first call, on the thread of that call, as a child of the
    /// application object, with which it is deleted. Null after that, until there is another application
    /// object: a task without a manager then sends nothing and stays running.
    static SslIgnorantNetworkAccessManager* defaultNetworkAccessManager();

    /// @}
    /// @name Login
    /// @{

    /// Whether requests must carry a token. Setting an authenticator turns it on.
    bool requiresAuthentication() const;
    /// Sets requiresAuthentication(). A task that requires a token and has no authenticator ends with
    /// ErrorCode::AuthenticationFailed when it comes to send.
    void setRequiresAuthentication(bool required);
    /// Sets where the token comes from. A task that waits for another authenticator continues with this one;
    /// null leaves requiresAuthentication() as it is, so such a task ends with
    /// ErrorCode::AuthenticationFailed. The refusals that maxTokenRefusals() bounds are counted anew.
    void setAuthenticator(AbstractAuthenticator* authenticator) override;

    /// How many fresh tokens may be refused; 10 by default. A token is fresh if the task sent it after a
    /// login that it waited for, or in place of one that was refused; so the first token that a task sends is
    /// usually none. It counts as refused when a login is asked for because of it: by a 401, by
    /// handleUnauthorizedError() whatever the status, or because it is empty. The refusal of that many ends
    /// the task under the response error policy with ErrorCode::AuthenticationFailed, and 2401 in the details
    /// if the status is 401. Replies do not reset the count, nor do retries; exec() and another authenticator
    /// do.
    int maxTokenRefusals() const;
    /// Sets maxTokenRefusals(). 1, 0 and negative values end the task with the first refusal of a fresh
    /// token. Where each token is good for one request, tasks that share a login need as many as there are
    /// tasks.
    void setMaxTokenRefusals(int refusals);

    /// Whether a NetworkQueue gives its authenticator to the task; true by default.
    bool usesQueueAuthenticator() const;
    /// To be set to false before the task is appended, for a login that runs through the queue whose
    /// authenticator waits for it: with that authenticator, it would wait for itself.
    void setUsesQueueAuthenticator(bool uses);

    /// @}
    /// @name Judging the reply
    /// @{

    /// What becomes of transport failures and unhandled statuses; FinishWithError by default.
    ErrorPolicy replyErrorPolicy() const;
    /// Sets the policy for errors from now on.
    void setReplyErrorPolicy(ErrorPolicy policy);
    /// What becomes of 400, 404 and failed logins; FinishWithError by default.
    ErrorPolicy responseErrorPolicy() const;
    /// Sets the policy for errors from now on.
    void setResponseErrorPolicy(ErrorPolicy policy);
    /// Ends the task with @p error or with success, or does nothing, as @p policy says.
    void applyErrorPolicy(ErrorPolicy policy, Error error);
    /// applyErrorPolicy() with replyErrorPolicy().
    void applyReplyErrorPolicy(const Error& error);
    /// applyErrorPolicy() with responseErrorPolicy().
    void applyResponseErrorPolicy(const Error& error);

    /// Sets what is done about a status from 100 to 999, or about a reply without one (Unknown), in place of
    /// everything the task would do, finishing included: the handler must end the task, or start it again
    /// with exec(). It is called once for each attempt that ends with that status, and may delete the task.
    /// Calling an empty handler throws std::bad_function_call.
    void setResponseHandler(HttpResponseStatusCode code, std::function<void()> handler);
    /// Sets @p handler for each status of @p codes.
    void setResponseHandler(const QList<HttpResponseStatusCode>& codes, std::function<void()> handler);

    /// Adds to the transport errors that are retried. By default these are TimeoutError, ProxyTimeoutError,
    /// TemporaryNetworkFailureError, UnknownNetworkError and ServiceUnavailableError (503). They count where
    /// the status has no handler.
    void registerRecoverableNetworkErrors(const QSet<QNetworkReply::NetworkError>& errors);
    /// Removes transport errors from those that are retried.
    void unregisterRecoverableNetworkErrors(const QSet<QNetworkReply::NetworkError>& errors);

    /// @}
    /// @name Retries
    /// Beyond Retriable, all off by default. An execution of a task begins with exec() and comprises all of
    /// its attempts and waits: retries, logins and calls of exec() while the task runs belong to it.
    /// setIdle() on a running task ends it, and the next exec() begins another.
    /// @{

    /// How much of retryDelay() is random before a retry, from 0 (the default: nothing) to 1.
    double retryJitter() const;
    /// Sets retryJitter(): the wait before a retry is uniformly distributed from (1 - @p share) *
    /// retryDelay() to retryDelay(), so that tasks that failed together do not come back together. 1 is known
    /// as full jitter. Values out of range become the nearest one, NaN 0. retryDelay() and a delay before the
    /// first attempt stay exact. @p generator makes the random numbers, null for that of the process; it must
    /// outlive the task's retries and is used on the task's thread.
    void setRetryJitter(double share, QRandomGenerator* generator = nullptr);

    /// How long a server may make the task wait with the field Retry-After; 0 by default, the field is then
    /// ignored.
    std::chrono::seconds maxRetryAfter() const;
    /// Sets maxRetryAfter(): before the retry of a 408, 429 or 503, the task waits for as long as the field
    /// asks for, in seconds or until a date, but at most for @p longest; or for its own delay with jitter if
    /// that is longer. No wait is longer than 24 days. A field that is invalid or in the past counts as
    /// absent; 0 and negative values of @p longest switch this off. A date is compared with the reply's own
    /// Date if it has one, and with the clock otherwise.
    void setMaxRetryAfter(std::chrono::seconds longest);

    /// Whether a request is retried although the server may have processed it; true by default.
    bool unsafeRetriesEnabled() const;
    /// Sets unsafeRetriesEnabled(). With false, a request whose method is not idempotent (POST, RFC 9110,
    /// 9.2.2) is retried only if it was certainly not processed: refused with 429 or 503, the connection or
    /// that of the proxy was refused, its host was not found, or an HTTP/2 server says so. It is also sent
    /// again after a login. A time-out, a lost connection and 408 are final. This permits no retries that
    /// would not be made otherwise. Qt itself repeats a request whose connection is closed before the reply
    /// begins; with false, it cannot repeat a POST, which then fails with ContentReSendError, unless the
    /// content is multipart, the URL has a user name or the task allows HTTP/2.
    void setUnsafeRetriesEnabled(bool enabled);

    /// Whether requests carry an Idempotency-Key field; false by default.
    bool idempotencyKeyEnabled() const;
    /// Sets idempotencyKeyEnabled(): all attempts of one execution carry the same random UUID, by which a
    /// server that supports the field recognises a repeated request. A field of that name in request() is
    /// sent instead.
    void setIdempotencyKeyEnabled(bool enabled);

    /// How long an execution may take as a whole, with all attempts and waits; 0 by default: as long as it
    /// takes.
    std::chrono::milliseconds deadline() const;
    /// Sets deadline(), which counts from the first exec(), by a monotonic clock; 0 and negative values mean
    /// none. It may be changed while the task runs; if it has already passed, the task ends in the next turn
    /// of the event loop.
    ///
    /// At the deadline the task ends, in whatever phase it is and whatever the error policies, with
    /// ErrorCode::Network and NetworkErrorConstants::DEADLINE_ERROR_CODE in the details; the text of the last
    /// failed attempt, if any, is among the error's warnings. A retry whose wait would not end before the
    /// deadline is not made: the attempt counts as the last one, and the task ends with its error.
    void setDeadline(std::chrono::milliseconds deadline);

    /// @}
    /// @name Reply
    /// @{

    /// The content received so far; the whole of it once the reply is complete. While a task does not stream,
    /// the content stays with the reply until it is complete. Kept until clearData() or the next attempt.
    QByteArray data() const;
    /// Replaces data(), for a task that makes something else of it.
    void setData(QByteArray data);
    /// Drops data(). Content that the reply still holds is not dropped, and may follow.
    void clearData();
    /// Drops the first @p count bytes of data() without copying the rest. Returns how many are left; or -1,
    /// and changes nothing, if there are none or fewer than @p count, or if @p count is negative.
    int chopFirstBytes(int count);
    /// Whether the content of replies may appear in the log, where the application setting "Network/DumpData"
    /// asks for it, and in the debug form of the task; true by default.
    bool isContentLogged() const;
    /// To be set to false for replies that contain a secret, such as a token.
    void setContentLogged(bool isLogged);
    /// How many bytes of content the current or last reply has reported. Kept until the next reply reports
    /// its own.
    qint64 bytesReceived() const;

    /// The status of the last reply; HttpResponseStatusCode::OK from exec() until a reply has been judged.
    HttpResponseStatusCode httpResponseStatusCode() const;
    /// Sets the status and its number.
    void setHttpResponseStatusCode(HttpResponseStatusCode code);
    /// The status as a number: 200 from exec() until a reply has been judged, 0 for a reply without a status.
    int httpResponseStatusCodeNumber() const;
    /// Sets the number alone.
    void setHttpResponseStatusCodeNumber(int number);
    /// The transport error of the last reply. Qt reports error statuses as transport errors too, 404 as
    /// ContentNotFoundError for one.
    QNetworkReply::NetworkError networkResponseError() const;
    /// Sets networkResponseError(), for subclasses that judge replies themselves.
    void setNetworkResponseError(QNetworkReply::NetworkError error);
    /// The text of networkResponseError(), without passwords of URLs; empty if there is no error.
    QString networkResponseErrorMessage() const;
    /// Sets networkResponseErrorMessage(), for subclasses that judge replies themselves.
    void setNetworkResponseErrorMessage(const QString& message);
    /// The time-out of the task itself that ended its last attempt; None from exec() on, and after any other
    /// end.
    TimeoutKind timeoutKind() const;
    /// Whether timeoutKind() is not None.
    bool hasTimedOut() const;

    /// The current or last reply, or null. Owned by the task: never delete it. In slots connected to the
    /// reply itself, unlike in those of the task, Qt's rule holds: do not delete the task or replace the
    /// reply there, but use deleteLater() or cancel().
    QNetworkReply* networkReply();
    /// The current or last reply, or null. Owned by the task.
    const QNetworkReply* networkReply() const;
    /// Gives the task a reply, of which it takes ownership, in place of the current one, which is deleted.
    /// During an attempt the completion of neither is awaited any more, also if it is the same reply; unless
    /// the caller ends the task, it times out.
    void setNetworkReply(QNetworkReply* reply);
    /// The connection to the reply's completion, while it is awaited. Without it the attempt times out.
    std::optional<QMetaObject::Connection> networkConnection();
    /// Replaces the connection, which is disconnected, and stops the time-out timer. From then on it is for
    /// the caller to judge the reply and to end the task.
    void setNetworkConnection(QMetaObject::Connection connection);
    /// Drops the connection and stops the time-out timer: the current reply will not be judged any more, and
    /// the caller has to end the task or to start another attempt with exec().
    void resetNetworkConnection();
    /// Calls resetNetworkConnection(), and forgets content, error and status.
    void clearNetworkState();
    /// Aborts the current reply if it is still arriving. While its completion is awaited, the attempt then
    /// fails with OperationCanceledError, which is retried like a reply that was cut off; to end the task,
    /// call cancel().
    void abort();

    /// Ends a pause, as BaseTask::resume() says. Has no effect while the task waits for a delay or a login:
    /// it continues by itself, holds no slot of its queue until then, and waits for one if none is free. A
    /// task that waited sends its request when this has made it running again, from the event loop.
    void resume() override;

    /// A text for the log line of a failed reply; empty here, for subclasses. Called once for each reply with
    /// a transport error.
    virtual QString errorMessage() const;

    /// @}

Q_SIGNALS:
    /// Content has arrived: in data() if the request streams, else to be taken with read(). Any number of
    /// times for each attempt, also while the content of an error status arrives. Deleting the task in a slot
    /// is safe, as with every signal of the task.
    void readyRead() const;
    /// The task is queued or executing again after a failed attempt. Once for each aboutToRetry(), unless the
    /// task is ended or deleted meanwhile.
    void retried() const;
    /// A failed attempt is about to be repeated: the reply's error, status and content have been dropped and
    /// the retry has been counted. networkReply() is still the failed one.
    void aboutToRetry();

public Q_SLOTS:
    /// Takes up to @p maxSize bytes (250 MB by default) of the content that the reply holds, past data().
    /// Empty for a negative size.
    QByteArray read(qint64 maxSize = 250 * MB);
    /// Starts an attempt, after retryDelay() and from the event loop. Called for an idle task, by its queue
    /// or by the program; in a handler it starts another attempt, without the content of the one before. If
    /// an attempt is under way or the task has finished, it does nothing but log a warning.
    void exec() override;
    /// Ends the task with ErrorCode::Canceled in any phase. Nothing is sent, and no signal but canceled() and
    /// finished() is emitted after that.
    void cancel() override;

protected:
    void finalize() override;
    Error doFinish() override;

    /// Called for a reply whose status has no handler. Fails the task, after retries if the transport error
    /// is recoverable.
    virtual void processUnhandledReply();
    /// Puts the token into @p request, and remembers it: if it is refused and the authenticator has another
    /// one by then, the task sends that without a login. Returns whether it may be sent now; if not, a login
    /// has been asked for, or the task has ended with ErrorCode::InvalidArgument because the token cannot be
    /// a field's value. Called once for each attempt of a task that requires a token. An override that
    /// returns false without either has to end the task itself. A field with a control character that it sets
    /// ends the task too, but only up to Qt 6.7: later versions drop such a field and print a warning, and
    /// the request is sent without it.
    virtual bool doAuthenticateRequest(QNetworkRequest* request);
    /// Rewrites a relative path before prepareRequest() uses it; returns it unchanged here.
    virtual QString fullRelativePath(const QString& relativePath) const;
    /// Makes the content of a Post or Delete request; null, for none, here. Called once for each attempt,
    /// also of a Put, which does not send it; the task takes ownership and deletes it with the attempt's
    /// reply. A boundary with a control character ends the task with ErrorCode::InvalidArgument.
    virtual QHttpMultiPart* createMultiPart() const;

    /// A request for a path on a server, which accepts JSON and sends the body, if there is one, as JSON.
    /// Path, query and fragment of the base URL are replaced. ErrorCode::InvalidArgument for a path that does
    /// not start with '/'.
    Result<NetworkRequest> prepareRequest(const PrepareRequestParams& params) const;
    /// prepareRequest() without a body.
    Result<NetworkRequest> prepareRequest(const QUrl& baseUrl, const QString& relativePath,
                                          NetworkRequest::Method method) const;
    /// prepareRequest() with @p json, in its indented form, as the body.
    Result<NetworkRequest> prepareRequest(const QUrl& baseUrl, const QString& relativePath,
                                          NetworkRequest::Method method, const QJsonObject& json) const;
    /// prepareRequest() without a body, for a reply that is streamed or not.
    Result<NetworkRequest> prepareRequest(const QUrl& baseUrl, const QString& relativePath,
                                          NetworkRequest::Method method, bool streaming) const;

    /// Stores error and status of the reply. Returns whether the reply can be processed.
    bool setNetworkTaskStatusFromReply();
    /// Retries, or ends the task under the reply error policy; an empty @p message stands for the reply's own
    /// text. A reply that is still arriving is aborted in both cases.
    void processFailedReply(const QString& message);
    /// Starts another attempt if one is allowed, and returns whether the caller must do nothing more. Gives
    /// up the attempt that is under way. In doFinish() it logs a warning and returns false.
    bool retry();
    /// Gives up the attempt that is under way and sends the request again, after a login unless the
    /// authenticator has another token by now; for subclasses that learn of an expired login in their own
    /// way. Does nothing but log a warning if the task does not run, and in doFinish().
    void handleUnauthorizedError();

private:
    friend class FileDownloadTask;
    friend class NetworkQueue;

    bool isReplyWhole() const;
    bool isDataIncomplete() const;

    static constexpr qint64 MB = 1048576;

    class Private;
    std::unique_ptr<Private> d;
};

QT_WARNING_POP

/// Writes the task with its request (content masked) and what it received, in no-space mode.
ORV_NETWORK_EXPORT QDebug operator<<(QDebug debug, const NetworkTask& task);

} // namespace orv
