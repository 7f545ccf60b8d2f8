#include <ErrorWarningMessagesUtils.h>
#include <HttpResponseStatusCodesUtils.h>
#include <NetworkConstants.h>
#include <NetworkTask.h>
#include <Settings.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTest>

#include <barrier>
#include <functional>
#include <thread>
#include <vector>

using namespace orv;

// clazy:excludeall=non-pod-global-static
namespace {

constexpr int THREADS = 4;

// Runs @p work in several threads that begin together.
void runTogether(const std::function<void(int)>& work)
{
    std::barrier start(THREADS);
    std::vector<std::thread> threads;
    for (int number = 0; number < THREADS; ++number) {
        threads.emplace_back([&, number] {
            start.arrive_and_wait();
            work(number);
        });
    }
    for (auto& thread : threads)
        thread.join();
}

std::vector<SslIgnorantNetworkAccessManager*> managers(THREADS);

} // namespace

/// What several threads may enter: one-time initialisations, constants, the logging category, and values.
/// Meant for ThreadSanitizer.
class tst_Threads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void makeOneDefaultManager()
    {
        for (auto* manager : managers) {
            QVERIFY(manager);
            QCOMPARE(manager, managers.front());
        }
        QCOMPARE(NetworkTask::defaultNetworkAccessManager(), managers.front());
    }

    void readConstantsAndMakeErrors()
    {
        std::vector<QString> texts(THREADS);
        runTogether([&](int number) {
            const auto notFound = HttpResponseStatusCode::NotFound;
            texts[number] = networkError(notFound, {}).errorMessage() + httpResponseStatusCodeName(notFound) +
                            networkError(QNetworkReply::TimeoutError, {}).errorMessage() +
                            networkUnknownError().errorMessage() +
                            QString::fromLatin1(network::DEFAULT_USER_AGENT) +
                            QString::fromLatin1(NetworkRequest::defaultContentType);
        });
        for (const auto& text : texts)
            QCOMPARE(text, texts.front());
        QVERIFY(texts.front().contains(QStringLiteral("Not Found")));
    }

    void shareValues()
    {
        NetworkRequest request(QStringLiteral("http://host/"), NetworkRequest::jsonContentType,
                               NetworkRequest::Method::Post);
        request.postData = "secret=1";
        request.setMaskingRegularExpression(QRegularExpression(QStringLiteral("(secret=).()")));
        std::vector<QByteArray> masked(THREADS);
        runTogether([&](int number) {
            auto copy = request;
            copy.rawHeaders.insert("X-Number", QByteArray::number(number));
            masked[number] = copy.maskedData();
        });
        for (const auto& text : masked)
            QCOMPARE(text, QByteArrayLiteral("secret=******"));
        QVERIFY(request.rawHeaders.isEmpty());
    }

    void readSettings()
    {
        std::vector<int> values(THREADS);
        runTogether([&](int number) {
            values[number] = as::value(QStringLiteral("Network/None"), number + 1).toInt();
        });
        for (int number = 0; number < THREADS; ++number)
            QCOMPARE(values[number], number + 1);
    }
};

int main(int argc, char** argv)
{
    const QObject first; // so that Qt takes this thread for the main one
    // Before there is an application object any thread may be the first to ask.
    runTogether([](int number) {
        managers[number] = NetworkTask::defaultNetworkAccessManager();
        NetworkTask finished;
        finished.cancel();
        finished.exec(); // logs
    });
    QCoreApplication application(argc, argv);
    tst_Threads test;
    const int result = QTest::qExec(&test, argc, argv);
    delete managers.front();
    return result;
}

#include "tst_Threads.moc"
