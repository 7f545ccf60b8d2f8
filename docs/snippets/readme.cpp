#include "Snippets.h"

#include <BearerLogin.h>
#include <NetworkQueue.h>

#include <QCoreApplication>
#include <QJsonObject>
#include <QTranslator>

#include <algorithm>

using namespace Qt::StringLiterals;

void Snippets::readme()
{
    m_server->addReply(u"/login"_s, orv::LoopbackReply::json({{u"token"_s, u"t1"_s}}));
    m_server->addReply(u"/users"_s, orv::LoopbackReply(200, "ann"));
    const auto url = m_url + u"/users"_s;
    orv::BearerLogin login(orv::BearerLogin::jsonRequest(m_url + u"/login"_s, {{u"user"_s, u"ann"_s}}), this);
    orv::NetworkQueue queue;

    //! [task]
    auto* task = new orv::NetworkTask(url);
    task->setAuthenticator(&login); // waits for a token if it is missing or refused
    connect(task, &orv::NetworkTask::finished, this, [this, task] {
        if (task->hasError())
            showError(task->error().errorMessage());
        else
            use(task->data());
        task->deleteLater();
    });
    queue.append(task); // or task->exec(), without a queue
    //! [task]

    QTRY_COMPARE(m_shown, "ann");
    QCOMPARE(m_server->requests().constLast().field("Authorization"), "Bearer t1");
}

void Snippets::readmeTranslations()
{
    //! [translations]
    if (auto* texts = new QTranslator(qApp);
        texts->load(QLocale(), u"orv_network"_s, u"_"_s, u":/orv_network/translations"_s))
        QCoreApplication::installTranslator(texts);
    //! [translations]

    const auto loaded = qApp->findChildren<QTranslator*>();
    for (auto* texts : loaded)
        delete texts; // the other snippets are in English
    QVERIFY(std::ranges::count(loaded, nullptr) == 0 && loaded.size() == 1);
}
