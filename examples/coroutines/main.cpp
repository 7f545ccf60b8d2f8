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

void cancelByUser(Client* client)
{
    client->cancel(Error(ErrorCode::Canceled, "canceled by the user"));
}

/// Requests the list, then the stock of all its items in parallel, and cancels what takes longer than @p
/// limit milliseconds. Returns how many items failed, or -1 if there is no list. The client may be destroyed
/// in the meantime, which shows as an error, so it is not used after one.
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
    for (auto& stock : stocks) { // all are in progress, so the order of awaiting does not matter
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
    QCommandLineOption destroyAfter{u"destroy-after"_s, u"Destroy the client and its requests."_s, u"ms"_s};
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

// The URL from the command line; without one, starts @p server and returns its URL.
orv::Result<QString> shopUrl(const Options& options, shop::Server& server)
{
    const auto arguments = options.parser.positionalArguments();
    if (!arguments.isEmpty())
        return arguments.constFirst();
    const auto error = server.listen();
    if (error.hasError())
        return error;
    return server.url({});
}

// Schedules --cancel-after and --destroy-after.
void scheduleEnds(const Options& options, std::unique_ptr<Client>& client)
{
    const auto& parser = options.parser;
    if (parser.isSet(options.cancelAfter))
        QTimer::singleShot(parser.value(options.cancelAfter).toInt(), client.get(),
                           [raw = client.get()] { cancelByUser(raw); });
    if (parser.isSet(options.destroyAfter))
        QTimer::singleShot(parser.value(options.destroyAfter).toInt(), client.get(),
                           [&client] { client.reset(); });
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const Options options(application);
    shop::Server server;
    const auto url = shopUrl(options, server);
    if (url.hasError()) {
        say(url.error().errorMessage());
        return 1;
    }

    auto client = std::make_unique<Client>(url.value());
    QObject::connect(client.get(), &Client::loggedIn, [] { say(u"Logged in"_s); });
    const fetch::Interruption interruption;
    QObject::connect(&interruption, &fetch::Interruption::requested, client.get(),
                     [raw = client.get()] { cancelByUser(raw); });
    scheduleEnds(options, client);

    const int limit = options.parser.value(options.limit).toInt();
    return QCoro::waitFor(takeStock(client.get(), limit)) == 0 ? 0 : 2;
}
