#pragma once

#include <QIODevice>

#include <algorithm>
#include <cstring>

namespace orv {

/// Content that can be sent once.
///
/// When a connection is closed before the reply begins, Qt itself sends the request again, whatever its
/// method, without a sign of it; unless it cannot read the content from its beginning again. Such a request
/// then fails with QNetworkReply::ContentReSendError.
class OneTimeContent : public QIODevice
{
public:
    explicit OneTimeContent(const QByteArray& content)
        : m_content(content)
    {
        open(ReadOnly | Unbuffered);
    }

    qint64 size() const override { return m_content.size(); }
    bool reset() override { return false; }

protected:
    qint64 readData(char* data, qint64 maxSize) override
    {
        const auto count = std::min(maxSize, m_content.size() - pos());
        std::memcpy(data, m_content.constData() + pos(), static_cast<std::size_t>(count));
        return count;
    }
    qint64 writeData(const char* /*data*/, qint64 /*size*/) override { return -1; }

private:
    const QByteArray m_content;
};

} // namespace orv
