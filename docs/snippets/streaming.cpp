#include "Snippets.h"

using namespace Qt::StringLiterals;

void Snippets::streamLines()
{
    using namespace std::chrono_literals;
    m_server->addReply(u"/events"_s, orv::LoopbackReply(200, "one\ntwo\nthree\nfour").dripped(30, 2ms));
    const auto url = m_url + u"/events"_s;
    QList<QByteArray> lines;
    const auto useLine = [&lines](const QByteArray& line) { lines.append(line); };

    //! [lines]
    auto* task = new orv::NetworkTask(orv::NetworkTask::Priority::Normal, this);
    task->setRequest(url, orv::NetworkRequest::plainTextContentType, orv::NetworkRequest::Method::Get,
                     true); // streaming
    connect(task, &orv::NetworkTask::readyRead, this, [task, useLine] {
        const QByteArray received = task->data();
        qsizetype begin = 0;
        for (auto end = received.indexOf('\n'); end >= 0; end = received.indexOf('\n', begin)) {
            useLine(received.mid(begin, end - begin));
            begin = end + 1;
        }
        task->chopFirstBytes(static_cast<int>(begin));
    });
    connect(task, &orv::NetworkTask::finished, this, [this, task, useLine] {
        if (task->hasError())
            showError(task->error().errorMessage());
        else if (!task->data().isEmpty())
            useLine(task->data()); // the last line, if it ends without a line break
        task->deleteLater();
    });
    task->exec();
    //! [lines]

    QTRY_COMPARE(lines, (QList<QByteArray>{"one", "two", "three", "four"}));
}

void Snippets::streamAndDropErrorContent()
{
    m_server->addReply(u"/events"_s, orv::LoopbackReply(503, "busy"));
    m_server->addReply(u"/events"_s, orv::LoopbackReply(200, "data"));
    orv::NetworkTask whole;
    whole.setRequest(m_url + u"/events"_s, {}, orv::NetworkRequest::Method::Get, true);
    whole.setDelayPolicy(orv::Retriable::DelayPolicy::None);
    auto* task = &whole;
    QByteArray consumed;
    const auto consume = [&consumed](const QByteArray& chunk) { consumed += chunk; };
    const auto startAgain = [&consumed] { consumed += '|'; };

    //! [status]
    connect(task, &orv::NetworkTask::readyRead, this, [task, consume] {
        if (orv::responseStatusCodeNumber(task->networkReply()) == 200)
            consume(task->data());
        task->clearData();
    });
    connect(task, &orv::NetworkTask::aboutToRetry, this, startAgain);
    //! [status]

    task->exec();
    QVERIFY(succeeds(task));
    QCOMPARE(consumed, "|data");
}

void Snippets::streamWithRead()
{
    m_server->addReply(u"/big"_s, orv::LoopbackReply(200, QByteArray(300000, 'x')));
    const auto url = m_url + u"/big"_s;
    qsizetype consumed = 0;
    const auto consume = [&consumed](const QByteArray& chunk) { consumed += chunk.size(); };
    orv::NetworkTask whole(url);
    auto* task = &whole;

    //! [read]
    connect(task, &orv::NetworkTask::readyRead, this, [task, consume] { consume(task->read(65536)); });
    connect(task, &orv::NetworkTask::finished, this, [task, consume] { consume(task->data()); });
    //! [read]

    task->exec();
    QVERIFY(succeeds(task));
    QCOMPARE(consumed, 300000);
}
