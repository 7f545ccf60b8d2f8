#include "Settings.h"

#include <QCoreApplication>
#include <QSettings>

#include <optional>

namespace as {

namespace {

class ThreadSettings
{
public:
    const QSettings& current()
    {
        // If the names are set after the first read, this thread would otherwise read the wrong file ever
        // after.
        const auto organization = QCoreApplication::organizationName();
        const auto domain = QCoreApplication::organizationDomain();
        const auto application = QCoreApplication::applicationName();
        if (!m_settings || organization != m_organization || domain != m_domain ||
            application != m_application) {
            m_organization = organization;
            m_domain = domain;
            m_application = application;
            m_settings.emplace();
        }
        return *m_settings;
    }

private:
    QString m_organization;
    QString m_domain;
    QString m_application;
    std::optional<QSettings> m_settings;
};

} // namespace

QVariant value(const QString& key, const QVariant& defaultValue)
{
    static thread_local ThreadSettings settings;
    return settings.current().value(key, defaultValue);
}

} // namespace as
