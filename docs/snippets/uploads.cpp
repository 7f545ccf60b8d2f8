#include "Snippets.h"

#include <QFile>
#include <QHttpMultiPart>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

//! [subclass]
class CreateUserTask : public orv::NetworkTask
{
public:
    CreateUserTask(const QUrl& server, const QJsonObject& user, QObject* parent)
        : NetworkTask(Priority::Normal, parent)
    {
        const auto request = prepareRequest(server, u"/v1/users"_s, NetworkRequest::Method::Post, user);
        if (request.hasError())
            finish(request.error());
        else
            setRequest(request.value());
    }

protected:
    using NetworkRequest = orv::NetworkRequest;
};
//! [subclass]

//! [multipart]
class PhotoTask : public orv::NetworkTask
{
public:
    PhotoTask(const QString& url, const QString& path, QObject* parent)
        : NetworkTask(Priority::Normal, parent)
        , m_path(path)
    {
        setRequest(url, orv::NetworkRequest::jsonContentType, orv::NetworkRequest::Method::Post, false);
    }

protected:
    QHttpMultiPart* createMultiPart() const override
    {
        auto* content = new QHttpMultiPart(QHttpMultiPart::FormDataType);
        auto* file = new QFile(m_path, content);
        if (!file->open(QIODevice::ReadOnly))
            qWarning("The photo cannot be read");
        QHttpPart photo;
        photo.setHeader(QNetworkRequest::ContentTypeHeader, u"image/jpeg"_s);
        photo.setHeader(QNetworkRequest::ContentDispositionHeader,
                        u"form-data; name=\"photo\"; filename=\"photo.jpg\""_s);
        photo.setBodyDevice(file);
        content->append(photo);
        return content;
    }

private:
    const QString m_path;
};
//! [multipart]

} // namespace

void Snippets::uploadJson()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply::json({{u"id"_s, 7}}, 201));
    const auto url = m_url + u"/users"_s;
    const QJsonObject user{{u"name"_s, u"ann"_s}};

    //! [json]
    orv::NetworkRequest request(url, orv::NetworkRequest::jsonContentType, orv::NetworkRequest::Method::Post);
    request.postDataContentType = orv::NetworkRequest::jsonContentType;
    request.postData = QJsonDocument(user).toJson(QJsonDocument::Compact);
    auto* task = new orv::NetworkTask(request, orv::NetworkTask::Priority::Normal, this);
    connect(task, &orv::NetworkTask::finished, this, [this, task] {
        if (task->hasError())
            showError(task->error().errorMessage());
        else
            use(task->data());
        task->deleteLater();
    });
    task->exec();
    //! [json]

    QTRY_COMPARE(m_shown, "{\"id\":7}");
    const auto sent = m_server->requests().constFirst();
    QCOMPARE(sent.method, "POST");
    QCOMPARE(sent.field("Content-Type"), "application/json");
    QCOMPARE(sent.content, "{\"name\":\"ann\"}");
}

void Snippets::uploadJsonThroughSubclass()
{
    m_server->addReply(u"/v1/users"_s, orv::LoopbackReply(201));
    CreateUserTask task(QUrl(m_url), {{u"name"_s, u"ann"_s}}, this);
    task.exec();
    QVERIFY(succeeds(&task));
    const auto sent = m_server->requests().constFirst();
    QCOMPARE(QJsonDocument::fromJson(sent.content).object().value("name"_L1).toString(), u"ann"_s);
    QCOMPARE(sent.field("Content-Type"), "application/json");
}

void Snippets::uploadFileWithPut()
{
    m_server->addReply(u"/notes/7"_s, orv::LoopbackReply(201));
    const auto url = m_url + u"/notes/7"_s;
    const QByteArray text("Buy milk");

    //! [put]
    orv::NetworkRequest request(url, {}, orv::NetworkRequest::Method::Put);
    request.postDataContentType = orv::NetworkRequest::plainTextContentType;
    request.postData = text;
    //! [put]

    orv::NetworkTask task(request);
    task.exec();
    QVERIFY(succeeds(&task));
    QCOMPARE(m_server->requests().constFirst().method, "PUT");
    QCOMPARE(m_server->requests().constFirst().content, text);
    QVERIFY(!m_server->requests().constFirst().hasField("Accept"));
}

void Snippets::uploadMultipart()
{
    const QTemporaryDir directory;
    QFile file(directory.filePath(u"photo.jpg"_s));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("pixels") == 6);
    file.close();
    m_server->addReply(u"/photos"_s, orv::LoopbackReply(429)); // each attempt sends the whole file
    m_server->addReply(u"/photos"_s, orv::LoopbackReply(201));
    PhotoTask task(m_url + u"/photos"_s, file.fileName(), this);
    task.setDelayPolicy(orv::Retriable::DelayPolicy::None);
    task.exec();
    QVERIFY(succeeds(&task));
    QCOMPARE(m_server->requests().size(), 2);
    for (const auto& sent : m_server->requests()) {
        QVERIFY(sent.field("Content-Type").startsWith("multipart/form-data; boundary="));
        QVERIFY(sent.content.contains("\r\n\r\npixels\r\n"));
    }
}
