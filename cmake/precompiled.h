#pragma once

// What many sources include, and takes long to compile. A compiler that does not accept the compiled form
// reads this for targets that do not use all of these libraries, too.

#if __has_include(<QCoro/QCoroTask>)
#include <QCoro/QCoroTask>
#endif

#if __has_include(<QNetworkReply>)
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslSocket>
#include <QTcpSocket>
#endif

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QPointer>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>
