#include "OtherClients.h"

#include <curl/curl.h>

#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace benchmark {

namespace {

struct Deleter
{
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

struct MultiDeleter
{
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};

using Multi = std::unique_ptr<CURLM, MultiDeleter>;

/// One request at a time.
class Transfer
{
public:
    Transfer()
        : m_fields(curl_slist_append(nullptr, "Accept: application/json"))
    {
        curl_easy_setopt(m_easy.get(), CURLOPT_HTTPHEADER, m_fields.get());
        curl_easy_setopt(m_easy.get(), CURLOPT_USERAGENT, "OrvLabs");
        curl_easy_setopt(m_easy.get(), CURLOPT_WRITEFUNCTION, &Transfer::receive);
        curl_easy_setopt(m_easy.get(), CURLOPT_WRITEDATA, this);
        curl_easy_setopt(m_easy.get(), CURLOPT_PRIVATE, this);
    }

    static Transfer* of(CURL* easy)
    {
        void* transfer = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
        return static_cast<Transfer*>(transfer);
    }

    void start(CURLM* multi, const QByteArray& url)
    {
        m_received = 0;
        curl_easy_setopt(m_easy.get(), CURLOPT_URL, url.constData());
        curl_multi_add_handle(multi, m_easy.get());
    }

    void stop(CURLM* multi) { curl_multi_remove_handle(multi, m_easy.get()); }

    bool isComplete(qint64 size) const
    {
        long status = 0;
        curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &status);
        return status == 200 && m_received == size;
    }

private:
    static size_t receive(const char* /*bytes*/, size_t size, size_t count, void* transfer)
    {
        static_cast<Transfer*>(transfer)->m_received += static_cast<qint64>(size * count);
        return size * count;
    }

    std::unique_ptr<CURL, Deleter> m_easy{curl_easy_init()};
    std::unique_ptr<curl_slist, Deleter> m_fields;
    qint64 m_received = 0;
};

class CurlGets
{
public:
    explicit CurlGets(int parallel)
        : m_transfers(static_cast<size_t>(parallel))
    {
    }

    void run(const QByteArray& url, qint64 size, int count)
    {
        int toStart = count;
        int toFinish = count;
        for (auto& transfer : m_transfers) {
            if (toStart-- > 0)
                transfer.start(m_multi.get(), url);
        }
        while (toFinish > 0) {
            int active = 0;
            curl_multi_perform(m_multi.get(), &active);
            while (auto* finished = nextFinished()) {
                --toFinish;
                finished->stop(m_multi.get());
                if (!finished->isComplete(size))
                    throw std::runtime_error("libcurl's reply is not what it should be");
                if (toStart-- > 0)
                    finished->start(m_multi.get(), url);
            }
            curl_multi_poll(m_multi.get(), nullptr, 0, toFinish > 0 ? 1000 : 0, nullptr);
        }
    }

private:
    Transfer* nextFinished()
    {
        int left = 0;
        while (const auto* message = curl_multi_info_read(m_multi.get(), &left)) {
            if (message->msg == CURLMSG_DONE)
                return Transfer::of(message->easy_handle);
        }
        return nullptr;
    }

    Multi m_multi{curl_multi_init()};
    std::vector<Transfer> m_transfers;
};

const QString NAME = u"libcurl, multi interface"_s;

} // namespace

Contender curlGets(Server& server, int parallel)
{
    const auto gets = std::make_shared<CurlGets>(parallel);
    return {NAME, [gets, url = server.smallUrl().toLatin1()](int count) {
                gets->run(url, Server::smallSize(), count);
            }};
}

Contender curlStream(Server& server)
{
    const auto gets = std::make_shared<CurlGets>(1);
    return {NAME, [gets, &server](int megabytes) {
                gets->run((server.url() + server.bodyPath(megabytes)).toLatin1(), qint64{megabytes} << 20, 1);
            }};
}

} // namespace benchmark
