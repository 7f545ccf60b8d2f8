#include "Snippets.h"

#include <QStandardPaths>

using namespace Qt::StringLiterals;

void Snippets::init()
{
    m_server = std::make_unique<orv::LoopbackServer>();
    QVERIFY(!m_server->listen().hasError());
    m_url = m_server->url(QString());
    m_shown.clear();
    m_errors.clear();
}

bool Snippets::succeeds(orv::NetworkTask* task)
{
    return QTest::qWaitFor([task] { return task->isFinished(); }, 20000) && !task->hasError();
}

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setOrganizationName(u"Orv"_s);
    QCoreApplication::setApplicationName(u"tst_Snippets"_s);
    QStandardPaths::setTestModeEnabled(true);
    Snippets snippets;
    return QTest::qExec(&snippets, argc, argv);
}
