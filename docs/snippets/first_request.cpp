#include "Snippets.h"

#include <QProcess>

using namespace Qt::StringLiterals;

void Snippets::firstRequest()
{
    m_server->addReply(u"/hello"_s, orv::LoopbackReply(200, "Hello, world"));
    const auto run = [this](const QString& path) {
        auto program = std::make_unique<QProcess>();
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"ASAN_OPTIONS"_s, u"detect_leaks=0"_s); // Qt's network thread still runs at exit
        program->setProcessEnvironment(environment);
        program->start(QStringLiteral(FIRST_REQUEST), {m_url + path});
        [&] { QTRY_COMPARE_WITH_TIMEOUT(program->state(), QProcess::NotRunning, 20000); }();
        return program;
    };
    const auto good = run(u"/hello"_s);
    QCOMPARE(good->exitCode(), 0);
    QCOMPARE(good->readAllStandardOutput(), "Hello, world\n");
    const auto bad = run(u"/missing"_s);
    QCOMPARE(bad->exitCode(), 1);
    QVERIFY(bad->readAllStandardError().contains("Not Found"));
}

void Snippets::firstRequestInAWindow()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, "ann"));
    const auto url = m_url + u"/users"_s;

    //! [window]
    auto* task = new orv::NetworkTask(url, orv::NetworkTask::Priority::Normal, this);
    connect(task, &orv::NetworkTask::finished, this, [this, task] {
        if (task->hasError())
            showError(task->error().errorMessage());
        else
            use(task->data());
        task->deleteLater();
    });
    task->exec();
    //! [window]

    QTRY_COMPARE(m_shown, "ann");
    QCOMPARE(m_server->requests().constFirst().field("Accept"), "application/json");
    QCOMPARE(m_server->requests().constFirst().field("User-Agent"), "OrvLabs");
}

void Snippets::firstRequestWithSettings()
{
    using namespace std::chrono_literals;
    m_server->addReply(u"/report"_s, orv::LoopbackReply(200, "<h1>Report</h1>"));
    const auto url = m_url + u"/report"_s;

    //! [settings]
    orv::NetworkRequest request(url, orv::NetworkRequest::htmlContentType, orv::NetworkRequest::Method::Get);
    request.rawHeaders.insert("Accept-Language", "de");
    auto* task = new orv::NetworkTask(request, orv::NetworkTask::Priority::Normal, this);
    task->setUserAgent("Reports/2.1");
    task->setTimeout(20s);
    task->exec();
    //! [settings]

    QVERIFY(succeeds(task));
    const auto sent = m_server->requests().constFirst();
    QCOMPARE(sent.field("Accept"), "text/html");
    QCOMPARE(sent.field("Accept-Language"), "de");
    QCOMPARE(sent.field("User-Agent"), "Reports/2.1");
    delete task;
}

void Snippets::firstRequestDetails()
{
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, "ann").withField("ETag", "\"7\""));
    orv::NetworkTask whole(m_url + u"/users"_s);
    auto* task = &whole;
    task->exec();
    QVERIFY(succeeds(task));

    //! [details]
    const int status = task->httpResponseStatusCodeNumber();
    const QByteArray version = task->networkReply()->rawHeader("ETag");
    //! [details]

    QCOMPARE(status, 200);
    QCOMPARE(version, "\"7\"");

    orv::NetworkTask another(m_url + u"/users"_s);
    task = &another;
    task->exec();
    //! [cancel]
    task->cancel();
    //! [cancel]
    QCOMPARE(task->error().errorCode(), orv::ErrorCode::Canceled);
    QCOMPARE(task->isCanceled(), true);
}
