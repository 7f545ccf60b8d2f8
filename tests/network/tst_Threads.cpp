#include <HttpResponseStatusCodesUtils.h>
#include <NetworkTask.h>
#include <SslIgnorantNetworkAccessManager.h>

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTest>

#include <barrier>
#include <functional>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
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
        for (auto* manager : managers)
            QCOMPARE(manager, NetworkTask::defaultNetworkAccessManager());
    }

    void useConstantsAndValues()
    {
        NetworkRequest request;
        request.postData = "secret=1";
        request.setMaskingRegularExpression(QRegularExpression(u"(secret=).()"_s));
        std::vector<QByteArray> texts(THREADS);
        runTogether([&](int number) {
            auto copy = request;
            copy.rawHeaders.insert("X-Number", QByteArray::number(number));
            const auto notFound = HttpResponseStatusCode::NotFound;
            const auto text = networkError(notFound, {}).errorMessage() +
                              httpResponseStatusCodeName(notFound) +
                              networkError(QNetworkReply::TimeoutError, {}).errorMessage() +
                              networkUnknownError().errorMessage();
            texts[number] = copy.maskedData() + text.toUtf8();
        });
        for (const auto& text : texts)
            QCOMPARE(text, texts.front());
        QVERIFY(texts.front().startsWith("secret=******") && texts.front().contains("Not Found"));
        QVERIFY(request.rawHeaders.isEmpty());
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
