#include "Redaction_p.h"

#include <QDebug>
#include <QRegularExpression>

namespace orv {

QString withoutPasswords(const QString& text)
{
    if (!text.contains(QLatin1Char('@')))
        return text;
    // Qt writes " - " between a URL without a path and the reason.
    static const QRegularExpression password(QStringLiteral("(//(?:(?! - )[^/?#:])*):(?:(?! - )[^/?#])*@"));
    return QString(text).replace(password, QStringLiteral("\\1@"));
}

QByteArray debugText(const NetworkRequest& request)
{
    QString text;
    QDebug(&text) << NetworkRequest(request); // a copy: the masking function may delete the original
    return text.toUtf8();
}

} // namespace orv
