#include "Client.h"
#include "Interruption.h"
#include "Server.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using orv::Error;
using orv::ErrorCode;
using shop::Client;

void say(const QString& text)
{
    std::puts(text.toLocal8Bit().constData());
    std::fflush(stdout);
}

/// Asks for the list, then for all that is on it at once, and gives up what takes longer than @p limit
/// milliseconds. The client may be destroyed meanwhile: it is used while there was no error only. Returns how
/// many items failed, or -1 without a list.
QCoro::Task<int> takeStock(Client* client, int limit)
{
    const auto names = co_await client->list();
    if (names.hasError()) {
        say(u"There is no list: %1"_s.arg(names.error().errorMessage()));
        co_return -1;
    }

    QElapsedTimer clock;
    clock.start();
    QTimer::singleShot(limit, client,
                       [client] { client->cancel(Error(ErrorCode::Canceled, "it takes too long")); });
    std::vector<QCoro::Task<orv::Result<int>>> stocks;
    for (const auto& name : names.value())
        stocks.push_back(client->stock(name));

    int failures = 0;
    auto name = names.value().cbegin();
    for (auto& stock : stocks) { // they are all under way: the order in which they are awaited costs nothing
        const auto result = co_await stock;
        failures += result.hasError() ? 1 : 0;
        say(u"%1 %2"_s.arg(*name++, -10)
                .arg(result.hasError() ? result.error().errorMessage() : QString::number(result.value())));
    }
    say(u"%1 of %2 items in %3 ms"_s.arg(stocks.size() - failures).arg(stocks.size()).arg(clock.elapsed()));
    co_return failures;
}

struct Options
{
    QCommandLineOption limit{u"limit"_s, u"Time for all items, 1000 if left out."_s, u"ms"_s, u"1000"_s};
    QCommandLineOption cancelAfter{u"cancel-after"_s, u"Cancel, as Ctrl+C does."_s, u"ms"_s};
    QCommandLineOption destroyAfter{u"destroy-after"_s, u"Destroy the client with all it does."_s, u"ms"_s};
    QCommandLineParser parser;

    explicit Options(const QCoreApplication& application)
    {
        parser.setApplicationDescription(u"Waits for network tasks with co_await."_s);
        parser.addHelpOption();
        parser.addOptions({limit, cancelAfter, destroyAfter});
        parser.addPositionalArgument(u"url"_s, u"A shop; one in this process if left out."_s, u"[url]"_s);
        parser.process(application);
    }
};

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const Options options(application);
    const auto& parser = options.parser;

    shop::Server server;
    QString url = parser.positionalArguments().value(0);
    if (url.isEmpty()) {
        const auto error = server.listen();
        if (error.hasError()) {
            say(error.errorMessage());
            return 1;
        }
        url = server.url({});
    }

    auto client = std::make_unique<Client>(url);
    QObject::connect(client.get(), &Client::loggedIn, [] { say(u"Logged in"_s); });
    const auto cancel = [raw = client.get()] {
        raw->cancel(Error(ErrorCode::Canceled, "canceled by the user"));
    };
    const fetch::Interruption interruption;
    QObject::connect(&interruption, &fetch::Interruption::requested, client.get(), cancel);
    if (parser.isSet(options.cancelAfter))
        QTimer::singleShot(parser.value(options.cancelAfter).toInt(), client.get(), cancel);
    if (parser.isSet(options.destroyAfter))
        QTimer::singleShot(parser.value(options.destroyAfter).toInt(), client.get(),
                           [&client] { client.reset(); });

    return QCoro::waitFor(takeStock(client.get(), parser.value(options.limit).toInt())) == 0 ? 0 : 2;
}
