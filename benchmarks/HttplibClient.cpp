#include "OtherClients.h"

#include <httplib.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace benchmark {

namespace {

// clazy:excludeall=non-pod-global-static
const httplib::Headers FIELDS{{"Accept", "application/json"}, {"User-Agent", "OrvLabs"}};
const QString NAME = u"cpp-httplib, a thread for each request at a time"_s;

class HttplibClients
{
public:
    HttplibClients(const Server& server, int parallel)
    {
        for (int i = 0; i < parallel; ++i) {
            m_clients.push_back(std::make_unique<httplib::Client>("127.0.0.1", server.port()));
            m_clients.back()->set_keep_alive(true);
            m_clients.back()->set_tcp_nodelay(true);
        }
    }

    void run(const std::string& path, size_t size, int count)
    {
        std::atomic<int> left = count;
        std::atomic<bool> hasFailed = false;
        std::vector<std::thread> threads;
        for (const auto& client : m_clients) {
            threads.emplace_back([&, client = client.get()] {
                while (left-- > 0) {
                    if (receive(*client, path) != size)
                        hasFailed = true;
                }
            });
        }
        for (auto& thread : threads)
            thread.join();
        if (hasFailed)
            throw std::runtime_error("cpp-httplib's reply is not what it should be");
    }

private:
    static size_t receive(httplib::Client& client, const std::string& path)
    {
        size_t received = 0;
        const auto result = client.Get(path, FIELDS, [&](const char* /*bytes*/, size_t size) {
            received += size;
            return true;
        });
        return result && result->status == 200 ? received : 0;
    }

    std::vector<std::unique_ptr<httplib::Client>> m_clients;
};

} // namespace

Contender httplibGets(Server& server, int parallel)
{
    const auto clients = std::make_shared<HttplibClients>(server, parallel);
    return {NAME, [clients](int count) {
                clients->run(Server::smallPath().toStdString(), static_cast<size_t>(Server::smallSize()),
                             count);
            }};
}

Contender httplibStream(Server& server)
{
    const auto clients = std::make_shared<HttplibClients>(server, 1);
    return {NAME, [clients, &server](int megabytes) {
                clients->run(server.bodyPath(megabytes).toStdString(), static_cast<size_t>(megabytes) << 20,
                             1);
            }};
}

} // namespace benchmark
